// The inside of the vCenter session: the process-wide references of the
// last login, and the free functions of the session logic, each taking the
// session by counted pointer. All of it runs on the session's SoapThread.
#pragma once
#include <ctime>
#include <string>

#include "session/HarbecSm.h"
#include "session/connection/SoapStatusUpdates.h"
#include "session/connection/VimBinding.h"
#include "soapH.h"

namespace Harbec {

// Shared by every session and written, without a guard, by whichever
// instance logs in last; every instance of one vCenter writes the same values.
extern ns2__ServiceContent* serviceContent;  // dangles once the connect is over
extern ns2__ManagedObjectReference rootFolderRef;
extern ns2__ManagedObjectReference propertyCollectorRef;
extern ns2__ManagedObjectReference eventManagerRef;
extern ns2__ManagedObjectReference alarmManagerRef;
extern ns2__ManagedObjectReference dvsMor;    // stays empty
extern ns2__ManagedObjectReference spareRef;  // stays empty
extern ns2__ManagedObjectReference propFilterObjRef;
extern ns2__ManagedObjectReference eventPropFilterObjRef;
// Addresses for the optional booleans of vim25 records.
extern bool xsd_true;
extern bool xsd_false;

// Connecting.
void initSoapSess(Kel::Ptr<HarbecSm> sm, VimBinding*& vim);
// 0 when logged in, -1 when URL, user name or password is empty; any other
// failure raises SoapException.
int connectTovCenter(Kel::Ptr<HarbecSm> sm);
void getCurrentTimeOnvCenter(Kel::Ptr<HarbecSm> sm, time_t& t);
void copyMOR(ns2__ManagedObjectReference* dstMOR, ns2__ManagedObjectReference* srcMOR);

// Failures and clean-up.
void handleSoapException(Kel::Ptr<HarbecSm> sm, const SoapException& exception);
void cleanUp(Kel::Ptr<HarbecSm> sm);

// User events.
void logUserEvent(VimBinding* vim, const std::string& entity, std::string& entityType, const std::string& msg);

// Filters, the update loop and the port operations.
void createPropFilter(Kel::Ptr<HarbecSm> sm);
void createEventFilter(Kel::Ptr<HarbecSm> sm);
void waitForUpdates(Kel::Ptr<HarbecSm> sm);
void checkForUpdates(Kel::Ptr<HarbecSm> sm);
void processUpdateSet(Kel::Ptr<HarbecSm> sm, ns2__UpdateSet* set);
// One round of a set: fn for every object of type objType, of the given
// kind unless all, in the order of the filters and their objects.
void processUpdates(Kel::Ptr<VI> vi, ns2__UpdateSet* set, void (*fn)(ns2__ObjectUpdate*, Kel::Ptr<VI>),
                    std::string objType, bool all, ns2__ObjectUpdateKind kind);
void applyConfig(Kel::Ptr<HarbecSm> sm);
void fetchDvPorts(HarbecSm::Ptr sm);
void blockPort(HarbecSm::Ptr sm, Kel::String8 portKey, bool block);

}  // namespace Harbec
