// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/sets/Set.h>

namespace Talvo {

TALVO_SET(template class, int32_t);
TALVO_SET(template class, string);

}  // namespace Talvo
