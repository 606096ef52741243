#include "inventory/VI.h"
#include "messaging/WebServiceTypes.h"

int main() {
  auto vi = Harbec::vIFactory("vi");
  auto host = vi->esxHostIs("host-1", 1u);
  auto req = Harbec::connectRequestFactory("connect");
  return host->hostId() == 1u && req->requestType() == Harbec::connectRequestType ? 0 : 1;
}
