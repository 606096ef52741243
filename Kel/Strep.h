// The layer's text forms ("streps") of basic values and their readers.
// Strings are single-quoted with backslash escapes; booleans are True/False.
#pragma once
#include <cstdint>

#include "Kel/Exception.h"
#include "Kel/String8.h"

namespace Kel {

String8 valueToStrep(const String8& v);
String8 valueToStrep(bool v);
String8 valueToStrep(unsigned long long v);
String8 valueToStrep(long long v);
String8 valueToStrep(double v);
inline String8 valueToStrep(unsigned v) { return valueToStrep(static_cast<unsigned long long>(v)); }
inline String8 valueToStrep(unsigned long v) { return valueToStrep(static_cast<unsigned long long>(v)); }
inline String8 valueToStrep(int v) { return valueToStrep(static_cast<long long>(v)); }
inline String8 valueToStrep(const char* v) { return valueToStrep(String8(v)); }

using StrIter = String8::IteratorConst;

// Skips blanks wherever `text` has a blank and demands the rest literally.
void needString(StrIter& i, const StrIter& end, const char* text);
void skipBlanks(StrIter& i, const StrIter& end);

void sequenceToValue(StrIter& i, const StrIter& end, String8* v);
void sequenceToValue(StrIter& i, const StrIter& end, bool* v);
void sequenceToValue(StrIter& i, const StrIter& end, unsigned long long* v);
void sequenceToValue(StrIter& i, const StrIter& end, unsigned* v);

// Re-raises a parse failure so that its message names the field.
[[noreturn]] void rethrowFromDeserializeAttr(const RangeException& e, const char* field);

template <class T>
void deserializeAttr(StrIter& i, const StrIter& end, T* v, const char* field) {
  try {
    sequenceToValue(i, end, v);
  } catch (const RangeException& e) {
    rethrowFromDeserializeAttr(e, field);
  }
}

// Raises the "junk at column" failure unless the parser reached the end.
void checkJunk(const String8& text, const StrIter& stop);

// Parses the whole string with T's parser constructor.
template <class T>
T strepToValue(const String8& text) {
  StrIter i = text.begin();
  const StrIter end = text.end();
  T v(i, end);
  checkJunk(text, i);
  return v;
}

}  // namespace Kel
