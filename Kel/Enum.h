// Generation of an enumeration's text forms from one list of its values:
//   #define HARBEC_FTSTATUS_VALUES(V) V(ftDisabled, 0) V(ftActive, 1) V(ftStandby, 2)
//   KEL_ENUM(FTStatus, "FTStatus", "FTStatus", HARBEC_FTSTATUS_VALUES)
// declares the enumeration and, in the current namespace, stringValue,
// valueToStrep, TInstance(unsigned), TInstance(String8), sequenceToValue and
// operator<<. `display` names unknown numbers ("T(%d)"), `bare` is the text
// of the range failure.
#pragma once
#include <ostream>

#include "Kel/Strep.h"

#define KEL_ENUM_VALUE(n, v) n = v,
#define KEL_ENUM_NAME(n, v) \
  case v: return #n;
#define KEL_ENUM_FROM_NUMBER(n, v) \
  case v: return static_cast<KelEnumT>(v);
#define KEL_ENUM_FROM_NAME(n, v) \
  if (s == #n) return static_cast<KelEnumT>(v);

#define KEL_ENUM_TYPE(T, VALUES) \
  enum T : unsigned { VALUES(KEL_ENUM_VALUE) };

#define KEL_ENUM_FUNCTIONS(T, Qualified, display, bare, VALUES)                        \
  inline ::Kel::String8 stringValue(Qualified v) {                                     \
    switch (static_cast<unsigned>(v)) {                                                \
      VALUES(KEL_ENUM_NAME)                                                            \
      default: return ::Kel::format(display "(%d)", static_cast<int>(v));              \
    }                                                                                  \
  }                                                                                    \
  inline ::Kel::String8 valueToStrep(const Qualified& v) {                             \
    return ::Kel::String8("'") + stringValue(v) + "'";                                 \
  }                                                                                    \
  inline Qualified T##Instance(unsigned v) {                                           \
    using KelEnumT = Qualified;                                                        \
    switch (v) {                                                                       \
      VALUES(KEL_ENUM_FROM_NUMBER)                                                     \
      default: ::Kel::throwRangeException(bare);                                       \
    }                                                                                  \
  }                                                                                    \
  inline Qualified T##Instance(const ::Kel::String8& s) {                              \
    using KelEnumT = Qualified;                                                        \
    VALUES(KEL_ENUM_FROM_NAME)                                                         \
    ::Kel::throwRangeException(bare);                                                  \
  }                                                                                    \
  inline void sequenceToValue(::Kel::StrIter& i, const ::Kel::StrIter& end, Qualified* v) { \
    ::Kel::String8 s;                                                                  \
    ::Kel::sequenceToValue(i, end, &s);                                                \
    *v = T##Instance(s);                                                               \
  }                                                                                    \
  inline std::ostream& operator<<(std::ostream& os, const Qualified& v) {              \
    return os << stringValue(v);                                                       \
  }

#define KEL_ENUM(T, display, bare, VALUES) \
  KEL_ENUM_TYPE(T, VALUES)                 \
  KEL_ENUM_FUNCTIONS(T, T, display, bare, VALUES)
