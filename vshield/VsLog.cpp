#include "vshield/VsLog.h"

namespace Harbec {

// Made at load time, in this order; the runs of blanks are part of the texts.
const Kel::LogHandle VMWAREVS_LOGIN_ERROR(
    "VMWAREVS_LOGIN_ERROR", Kel::logError,
    "Login to VShield Manager failed.",
    "This error indicates that the Pathline agent could not login to VShield       Manager using the configured username and password.",
    "Check the configured       credentials in the Pathline session configuration.", 60.0, 1.0, 0);

const Kel::LogHandle VMWAREVS_CONNECTION_FAILED(
    "VMWAREVS_CONNECTION_FAILED", Kel::logError,
    "Failed to connect to VShield Manager.",
    "This error indicates that the Pathline agent could not connect to VShield       Manager.",
    "Check the configured URL in Pathline session configuration and       verify network connectivity to VShield Manager.", 60.0, 1.0, 0);

const Kel::LogHandle VMWAREVS_CONNECTION_SUCCESSFUL(
    "VMWAREVS_CONNECTION_SUCCESSFUL", Kel::logInformational,
    "Successfully connected to VShield Manager.",
    " The Pathline agent was able to successfully establish connection with the         VShield Manager",
    Kel::NoActionRequired, 60.0, 1.0, 0);

const Kel::LogHandle VMWAREVS_SERVER(
    "VMWAREVS_SERVER", Kel::logError,
    "Pathline detected an internal error in VShield Manager.",
    "This error indicates that the Pathline agent did not get a timely response       to a request of VShield Manager. Check the health of the VShield Manager       server.",
    Kel::CallSupportIfPersists, 60.0, 1.0, 0);

const Kel::LogHandle VMWAREVS_REST_FAULT(
    "VMWAREVS_REST_FAULT", Kel::logError,
    "The REST request %s failed.",
    "This error indicates that the Pathline agent could not complete the REST        request to VShield Manager.",
    Kel::CallSupportIfPersists, 60.0, 1.0, 0);

const Kel::LogHandle VMWAREVS_XML_FAULT(
    "VMWAREVS_XML_FAULT", Kel::logError,
    "Unable to process XML from the REST request %s.",
    "This error indicates that the Pathline agent could not process the xml        returned from REST request of VShield Manager.",
    Kel::CallSupportIfPersists, 60.0, 1.0, 0);

}  // namespace Harbec
