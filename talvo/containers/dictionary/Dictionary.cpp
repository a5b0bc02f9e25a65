// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/dictionary/Dictionary.h>

namespace Talvo {

TALVO_COMMON_MAPS(template class);
TALVO_DICTIONARY(template class, string, int32_t);
TALVO_DICTIONARY(template class, string, string);
TALVO_DICTIONARY(template class, string, TRef<IInterface>);

}  // namespace Talvo
