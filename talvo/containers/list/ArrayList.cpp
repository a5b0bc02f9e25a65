// SPDX-License-Identifier: Apache-2.0
#include <talvo/containers/list/ArrayList.h>

namespace Talvo {

TALVO_ARRAY_LIST(template class, int32_t);
TALVO_ARRAY_LIST(template class, int64_t);
TALVO_ARRAY_LIST(template class, double);
TALVO_ARRAY_LIST(template class, string);
TALVO_ARRAY_LIST(template class, TObject*);
TALVO_ARRAY_LIST(template class, TRef<IInterface>);

}  // namespace Talvo
