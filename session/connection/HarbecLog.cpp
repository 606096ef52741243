#include "session/connection/HarbecLog.h"

namespace Harbec {

// Made at load time, in this order; the runs of blanks are part of the texts.

const Kel::LogHandle HARBEC_LOGIN_ERROR(
    "HARBEC_LOGIN_ERROR", Kel::logError,
    "Login to vCenter failed. %s",
    "This error indicates that the Pathline agent could not login       to vCenter using the configured username and  password",
    "Check the configured credentials in the VMware vSwitch       session configuration.", 60.0, 1.0, 0);

const Kel::LogHandle HARBEC_RPC_FAULT(
    "HARBEC_RPC_FAULT", Kel::logError,
    "The RPC %s failed.",
    "This error indicates that the Pathline agent could not complete the        RPC call to vCenter.",
    Kel::CallSupportIfPersists, 0.0, 1.0, 0);

const Kel::LogHandle HARBEC_CONNECT_FAILED(
    "HARBEC_CONNECT_FAILED", Kel::logError,
    "Failed to connect to vCenter. %s",
    "This error indicates that the VMware VDS agent could not connect to vCenter.",
    "Check the configured URL in vmware vswitch session configuration and       verify network connectivity to vCenter.", 60.0, 1.0, 0);

const Kel::LogHandle HARBEC_COMMUNICATION_ERROR(
    "HARBEC_COMMUNICATION_ERROR", Kel::logError,
    "Loss of connectivity to vCenter.",
    "This error indicates that there was loss of connectivity after a       session was successfully established with vCenter.",
    Kel::CallSupportIfPersists, 0.0, 1.0, 0);

const Kel::LogHandle HARBEC_AGENT_RESTART(
    "HARBEC_AGENT_RESTART", Kel::logError,
    "Agent restarting due to network error.",
    "This error indicates that there was loss of connectivity after a       session was successfully established and the agent is restaring.",
    Kel::CallSupportIfPersists, 0.0, 1.0, 0);

const Kel::LogHandle HARBEC_VMOTION_STARTED(
    "HARBEC_VMOTION_STARTED", Kel::logInformational,
    "VM %s in vmotion from %s to %s.",
    "Vmotion triggered on the VM",
    Kel::NoActionRequired, 0.0, 1.0, 0);

const Kel::LogHandle HARBEC_VMOTION_END(
    "HARBEC_VMOTION_END", Kel::logInformational,
    "VM %s migrated to %s.",
    "Vmotion completed on the VM",
    Kel::NoActionRequired, 0.0, 1.0, 0);

const Kel::LogHandle HARBEC_VCENTER_CONNECTED(
    "HARBEC_VCENTER_CONNECTED", Kel::logInformational,
    "Pathline agent successfully connected to vCenter %s.",
    "The Pathline agent was successfully able to establish connection       with the vCenter",
    Kel::NoActionRequired, 0.0, 1.0, 0);

}  // namespace Harbec
