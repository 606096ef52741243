// Value records of the web-service layer: log messages for vCenter, the two
// exception records, and the bounded string of the inventory's namespace.
// Each has a text form (strep) and a parser constructor that reads it back.
#pragma once
#include <ostream>

#include "Kel/Enum.h"
#include "Kel/String8.h"

namespace Harbec {

class LogMsg {
 public:
  LogMsg() = default;
  LogMsg(Kel::String8 entityRef, Kel::String8 msg, bool alarm)
      : entityRef_(entityRef), msg_(msg), alarm_(alarm) {}
  LogMsg(Kel::StrIter& i, const Kel::StrIter& end);  // parses a strep

  const Kel::String8& entityRef() const { return entityRef_; }
  const Kel::String8& msg() const { return msg_; }
  bool alarm() const { return alarm_; }
  void entityRefIs(const Kel::String8& v) { entityRef_ = v; }
  void msgIs(const Kel::String8& v) { msg_ = v; }
  void alarmIs(bool v) { alarm_ = v; }

  bool operator==(const LogMsg& o) const {
    return entityRef_ == o.entityRef_ && msg_ == o.msg_ && alarm_ == o.alarm_;
  }
  bool operator!=(const LogMsg& o) const { return !(*this == o); }
  bool operator!() const { return *this == LogMsg(); }

 private:
  Kel::String8 entityRef_;
  Kel::String8 msg_;
  bool alarm_ = false;
};
Kel::String8 valueToStrep(const LogMsg& v);
std::ostream& operator<<(std::ostream& os, const LogMsg& v);

// A vim25 failure, thrown and caught by value.
class SoapException {
 public:
#define HARBEC_SOAP_EXCEPTION_ID_VALUES(V) \
  V(unknownSoapException, 0)               \
  V(connectionException, 1)                \
  V(authenticationException, 2)            \
  V(datacenterException, 3)                \
  V(viException, 4)                        \
  V(fatalRpcException, 5)                  \
  V(recoverableRpcException, 6)
  KEL_ENUM_TYPE(Id, HARBEC_SOAP_EXCEPTION_ID_VALUES)

  SoapException() = default;
  SoapException(Id id, Kel::String8 what) : id_(id), what_(what) {}
  SoapException(Kel::StrIter& i, const Kel::StrIter& end);  // parses a strep

  Id id() const { return id_; }
  const Kel::String8& what() const { return what_; }
  bool operator==(const SoapException& o) const { return id_ == o.id_ && what_ == o.what_; }
  bool operator!=(const SoapException& o) const { return !(*this == o); }

 private:
  Id id_ = unknownSoapException;
  Kel::String8 what_;
};
KEL_ENUM_FUNCTIONS(SoapExceptionId, SoapException::Id, "SoapException::Id", "Id",
                   HARBEC_SOAP_EXCEPTION_ID_VALUES)
Kel::String8 valueToStrep(const SoapException& v);
std::ostream& operator<<(std::ostream& os, const SoapException& v);

// Declared with its text forms; the REST session reports through its status
// instead of raising it.
class RestException {
 public:
#define HARBEC_REST_EXCEPTION_ID_VALUES(V) \
  V(unknownRestException, 0)               \
  V(httpGetException, 1)                   \
  V(httpPutException, 2)                   \
  V(httpPostException, 3)                  \
  V(httpDeleteException, 4)
  KEL_ENUM_TYPE(Id, HARBEC_REST_EXCEPTION_ID_VALUES)

  RestException() = default;
  RestException(Id id, Kel::String8 what) : id_(id), what_(what) {}
  RestException(Kel::StrIter& i, const Kel::StrIter& end);  // parses a strep

  Id id() const { return id_; }
  const Kel::String8& what() const { return what_; }
  bool operator==(const RestException& o) const { return id_ == o.id_ && what_ == o.what_; }
  bool operator!=(const RestException& o) const { return !(*this == o); }

 private:
  Id id_ = unknownRestException;
  Kel::String8 what_;
};
KEL_ENUM_FUNCTIONS(RestExceptionId, RestException::Id, "RestException::Id", "Id",
                   HARBEC_REST_EXCEPTION_ID_VALUES)
Kel::String8 valueToStrep(const RestException& v);
std::ostream& operator<<(std::ostream& os, const RestException& v);

// A string of at most 255 bytes.
class BoundedString255 {
 public:
  BoundedString255() = default;
  BoundedString255(const Kel::String8& v);  // NOLINT: implicit like the string it bounds
  BoundedString255(const char* v) : BoundedString255(Kel::String8(v)) {}
  BoundedString255(Kel::StrIter& i, const Kel::StrIter& end);  // parses a strep
  BoundedString255& operator=(const Kel::String8& v);
  BoundedString255& operator=(const char* v) { return *this = Kel::String8(v); }

  const Kel::String8& value() const { return value_; }
  bool operator==(const BoundedString255& o) const { return value_ == o.value_; }
  bool operator!=(const BoundedString255& o) const { return !(*this == o); }

 private:
  static const Kel::String8& checked(const Kel::String8& v);
  Kel::String8 value_;
};
Kel::String8 valueToStrep(const BoundedString255& v);
std::ostream& operator<<(std::ostream& os, const BoundedString255& v);

}  // namespace Harbec
