// An alarm definition in vCenter: disabled, raised by the event
// "KestinEvent" on hosts, with no action.
#include "messaging/HarbecTrace.h"
#include "session/connection/Exchange.h"
#include "session/HarbecSmInternal.h"

namespace Harbec {

void createAlarm(Kel::Ptr<HarbecSm>, VimBinding* vim, std::string entity, std::string entityType,
                 std::string description) {
  HARBEC_TRACE_ENTRY();
  ns2__ManagedObjectReference entityRef;
  entityRef.__item = entity;
  entityRef.type = &entityType;

  std::string objectType = "HostSystem";
  ns2__ManagedEntityStatus status = ns2__ManagedEntityStatus__red;
  ns2__EventAlarmExpression expression;
  expression.eventType = "KestinEvent";
  expression.eventTypeId = nullptr;
  expression.objectType = &objectType;
  expression.status = &status;

  ns2__AlarmSetting setting;
  setting.toleranceRange = 0;
  setting.reportingFrequency = 0;

  // Prepared and deliberately not attached to the alarm: no action reaches the server.
  ns2__GroupAlarmAction groupAction;
  (void)groupAction;

  ns2__AlarmSpec spec;
  spec.name = "Kestin-Alarm";
  spec.systemName = nullptr;
  spec.description = description;
  spec.enabled = false;
  spec.expression = &expression;
  spec.action = nullptr;
  spec.actionFrequency = nullptr;
  spec.setting = &setting;

  ns2__CreateAlarmRequestType request;
  request._USCOREthis = &alarmManagerRef;
  request.entity = &entityRef;
  request.spec = &spec;
  _ns2__CreateAlarmResponse response;
  if (vimCall(vim, &VimBinding::__ns2__CreateAlarm, request, response) != SOAP_OK)
    throw SoapException(SoapException::recoverableRpcException, "CreateAlarm");
}

}  // namespace Harbec
