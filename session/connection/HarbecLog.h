// Operator log messages of the vCenter session.
#pragma once
#include "Kel/Log.h"

namespace Harbec {

// Registered and never raised: a wrong password shows as HARBEC_CONNECT_FAILED.
extern const Kel::LogHandle HARBEC_LOGIN_ERROR;
// A vim25 call failed on a live session; the argument names the call.
extern const Kel::LogHandle HARBEC_RPC_FAULT;
// A connect failed; the argument is the failed step or the login text.
extern const Kel::LogHandle HARBEC_CONNECT_FAILED;
// CurrentTime failed on the connection probe.
extern const Kel::LogHandle HARBEC_COMMUNICATION_ERROR;
// The session gives up and asks the supervisor for a restart.
extern const Kel::LogHandle HARBEC_AGENT_RESTART;
// A machine began to migrate: its name, source and destination.
extern const Kel::LogHandle HARBEC_VMOTION_STARTED;
// A migration ended: the machine and where it now runs.
extern const Kel::LogHandle HARBEC_VMOTION_END;
// Logged in; the argument is the host part of the URL.
extern const Kel::LogHandle HARBEC_VCENTER_CONNECTED;

}  // namespace Harbec
