#include "messaging/WebServiceTypes.h"

#include "messaging/HarbecTrace.h"

namespace Harbec {

void BatchedRestRequest::restRequestIs(const RestRequest::PtrConst& r) {
  HARBEC_TRACE_ENTRY();
  if (!r)
    Kel::throwRangeException(
        "null _restRequest parameter to mutator for Harbec::BatchedRestRequest::restRequest not "
        "allowed\"");
  restRequestIs(r->name(), r);
}

}  // namespace Harbec
