#include "inventory/VI.h"
#include "messaging/WebServiceTypes.h"
#include "session/HarbecSm.h"

int main() {
  auto vi = Harbec::vIFactory("vi");
  auto host = vi->esxHostIs("host-1", 1u);
  auto req = Harbec::connectRequestFactory("connect");
  // The vCenter session from its installed header alone, without gSOAP's.
  auto sessionStatus = Harbec::sessionStatusFactory("sessionStatus");
  auto sm = Harbec::harbecSmFactory(Harbec::soapStatusFactory("soapStatus"), sessionStatus, "Worker",
                                    Harbec::viConfigFactory("viConfig"), vi, false);
  sm->processSoapRequest(req);  // not configured: nothing is sent
  return host->hostId() == 1u && req->requestType() == Harbec::connectRequestType &&
                 sm->initialized() && sessionStatus->sessionState() == Harbec::sessionInit
             ? 0
             : 1;
}
