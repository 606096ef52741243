// Operator log messages of the vShield session.
#pragma once
#include "Kel/Log.h"

namespace Harbec {

// HTTP 401 or 403 from vShield Manager.
extern const Kel::LogHandle VMWAREVS_LOGIN_ERROR;
// HTTP 400 sent by the server; a connection that fails outright logs nothing.
extern const Kel::LogHandle VMWAREVS_CONNECTION_FAILED;
// Each entry into sessionConnected.
extern const Kel::LogHandle VMWAREVS_CONNECTION_SUCCESSFUL;
// HTTP 500 to 504.
extern const Kel::LogHandle VMWAREVS_SERVER;
// HTTP 404, with the full address; a reply that doesn't parse, with the
// relative endpoint.
extern const Kel::LogHandle VMWAREVS_REST_FAULT;
// Registered, never raised: a reply that doesn't parse raises
// VMWAREVS_REST_FAULT instead.
extern const Kel::LogHandle VMWAREVS_XML_FAULT;

}  // namespace Harbec
