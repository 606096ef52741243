#include "messaging/ValueTypes.h"

namespace Harbec {

using Kel::StrIter;
using Kel::String8;

namespace {

// Reads the text form shared by the value records:
//   Value('Harbec::<typeName>', ** {'<field>': <strep>, ...})
// Blanks may stand wherever the form has one, and trailing blanks are
// consumed. `readField(key)` reads the value of the field named `key` and
// returns false when the record has no such field.
template <class ReadField>
void parseRecord(StrIter& i, const StrIter& end, const char* typeName, ReadField readField) {
  const String8 quotedName = String8(" 'Harbec::") + typeName + "'";
  Kel::needString(i, end, " Value");
  Kel::needString(i, end, " (");
  Kel::needString(i, end, quotedName.charPtr());
  Kel::needString(i, end, " ,");
  Kel::needString(i, end, " **");
  Kel::needString(i, end, " {");
  bool first = true;
  while (true) {
    Kel::needString(i, end, " ");
    if (i == end) Kel::throwRangeException(String8("premature end of value type ") + typeName);
    if (*i == '}') break;
    if (!first) Kel::needString(i, end, ", ");
    first = false;
    String8 key;
    Kel::sequenceToValue(i, end, &key);
    Kel::needString(i, end, " : ");
    if (!readField(key))
      Kel::throwRangeException(String8(typeName) + " has no such attribute: " + key);
  }
  Kel::needString(i, end, "} ");
  Kel::needString(i, end, ") ");
}

}  // namespace

// LogMsg

LogMsg::LogMsg(StrIter& i, const StrIter& end) {
  parseRecord(i, end, "LogMsg", [&](const String8& key) {
    if (key == "entityRef") Kel::deserializeAttr(i, end, &entityRef_, "entityRef");
    else if (key == "msg") Kel::deserializeAttr(i, end, &msg_, "msg");
    else if (key == "alarm") Kel::deserializeAttr(i, end, &alarm_, "alarm");
    else return false;
    return true;
  });
}

String8 valueToStrep(const LogMsg& v) {
  return String8("Value('Harbec::LogMsg', ** {'entityRef': ") + Kel::valueToStrep(v.entityRef()) +
         ", 'msg': " + Kel::valueToStrep(v.msg()) + ", 'alarm': " + Kel::valueToStrep(v.alarm()) +
         "})";
}

std::ostream& operator<<(std::ostream& os, const LogMsg& v) { return os << valueToStrep(v); }

// SoapException

SoapException::SoapException(StrIter& i, const StrIter& end) {
  parseRecord(i, end, "SoapException", [&](const String8& key) {
    if (key == "id") Kel::deserializeAttr(i, end, &id_, "id");
    else if (key == "what") Kel::deserializeAttr(i, end, &what_, "what");
    else return false;
    return true;
  });
}

String8 valueToStrep(const SoapException& v) {
  return String8("Value('Harbec::SoapException', ** {'id': ") + valueToStrep(v.id()) +
         ", 'what': " + Kel::valueToStrep(v.what()) + "})";
}

std::ostream& operator<<(std::ostream& os, const SoapException& v) {
  return os << valueToStrep(v);
}

// RestException

RestException::RestException(StrIter& i, const StrIter& end) {
  parseRecord(i, end, "RestException", [&](const String8& key) {
    if (key == "id") Kel::deserializeAttr(i, end, &id_, "id");
    else if (key == "what") Kel::deserializeAttr(i, end, &what_, "what");
    else return false;
    return true;
  });
}

String8 valueToStrep(const RestException& v) {
  return String8("Value('Harbec::RestException', ** {'id': ") + valueToStrep(v.id()) +
         ", 'what': " + Kel::valueToStrep(v.what()) + "})";
}

std::ostream& operator<<(std::ostream& os, const RestException& v) {
  return os << valueToStrep(v);
}

// BoundedString255

const String8& BoundedString255::checked(const String8& v) {
  if (v.length() > 255) Kel::throwRangeException("BoundedString255::bytes > 255 not allowed");
  return v;
}

BoundedString255::BoundedString255(const String8& v) : value_(checked(v)) {}

BoundedString255::BoundedString255(StrIter& i, const StrIter& end) {
  String8 v;
  Kel::sequenceToValue(i, end, &v);
  value_ = checked(v);
}

BoundedString255& BoundedString255::operator=(const String8& v) {
  value_ = checked(v);
  return *this;
}

String8 valueToStrep(const BoundedString255& v) { return Kel::valueToStrep(v.value()); }

std::ostream& operator<<(std::ostream& os, const BoundedString255& v) { return os << v.value(); }

}  // namespace Harbec
