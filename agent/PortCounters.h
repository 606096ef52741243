// Counters and link facts of the DV ports behind the switch interfaces,
// asked of vCenter per distributed switch on the road that names the
// switch: the other road sends an empty reference, which a real vCenter
// refuses. The library parks each answer under a descriptor of ours; it is
// taken from there and written onto the NICs it concerns.
#pragma once
#include <map>
#include <string>
#include <vector>

#include "agent/SwitchView.h"
#include "inventory/VI.h"
#include "messaging/WebServiceTypes.h"

namespace HarbecAgent {

// A NIC as the inventory keys it: a host's physical NIC by device, or a
// machine's card by key.
struct NicKey {
  bool physical = false;
  std::string owner, key;
};

// The ports of one switch, asked for in one request.
struct PortAsk {
  std::string dvsMoId;
  std::map<std::string, std::vector<NicKey>> nics;  // port key -> the NICs on it
  int descriptor = -1;  // the answer is parked under it; the library closes it on failure
  std::string request;  // the request's name once posted
};

// The asks for the ports of the interfaces' uplinks and of the NICs behind
// them, one per switch. The caller holds the activity lock.
std::vector<PortAsk> portAsks(const SwitchView& view, const Harbec::VI& vi);

// The request of an ask, with a descriptor opened for it; null when no
// descriptor can be had.
Harbec::FetchDvPortRequest::Ptr portRequest(PortAsk& ask, const Kel::Name& name);

// Takes the answer parked for `ask`, writes it onto its NICs and lets the
// descriptor go. False when there is none: the call failed, and the library
// has closed the descriptor.
bool takeAnswer(const Harbec::VI::Ptr& vi, const PortAsk& ask);

}  // namespace HarbecAgent
