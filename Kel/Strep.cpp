#include "Kel/Strep.h"

#include <cinttypes>
#include <cstdio>
#include <string>

namespace Kel {

String8 valueToStrep(const String8& v) {
  std::string out = "'";
  for (char c : v) {
    if (c == '\'' || c == '\\') out += '\\';
    out += c;
  }
  out += "'";
  return String8(out);
}

String8 valueToStrep(bool v) { return v ? "True" : "False"; }
String8 valueToStrep(unsigned long long v) { return format("%llu", v); }
String8 valueToStrep(long long v) { return format("%lld", v); }
String8 valueToStrep(double v) { return format("%.12g", v); }

void skipBlanks(StrIter& i, const StrIter& end) {
  while (i != end && (*i == ' ' || *i == '\t' || *i == '\n' || *i == '\r')) ++i;
}

void needString(StrIter& i, const StrIter& end, const char* text) {
  for (const char* t = text; *t; ++t) {
    if (*t == ' ') {
      skipBlanks(i, end);
      continue;
    }
    if (i == end || *i != *t)
      throwRangeException(format("expected \"%s\" at \"%.20s\"", text, i == end ? "" : i.ptr()));
    ++i;
  }
}

void sequenceToValue(StrIter& i, const StrIter& end, String8* v) {
  skipBlanks(i, end);
  if (i == end || *i != '\'') throwRangeException("expected a quoted string");
  ++i;
  std::string out;
  while (true) {
    if (i == end) throwRangeException("unterminated quoted string");
    char c = *i++;
    if (c == '\'') break;
    if (c == '\\') {
      if (i == end) throwRangeException("unterminated quoted string");
      c = *i++;
    }
    out += c;
  }
  *v = String8(out);
}

void sequenceToValue(StrIter& i, const StrIter& end, bool* v) {
  skipBlanks(i, end);
  auto take = [&](const char* word) {
    StrIter j = i;
    for (const char* w = word; *w; ++w, ++j)
      if (j == end || *j != *w) return false;
    i = j;
    return true;
  };
  if (take("True")) *v = true;
  else if (take("False")) *v = false;
  else throwRangeException("expected True or False");
}

void sequenceToValue(StrIter& i, const StrIter& end, unsigned long long* v) {
  skipBlanks(i, end);
  if (i == end || *i < '0' || *i > '9') throwRangeException("expected a number");
  unsigned long long n = 0;
  while (i != end && *i >= '0' && *i <= '9') {
    unsigned long long d = static_cast<unsigned long long>(*i - '0');
    if (n > (UINT64_MAX - d) / 10) throwRangeException("number out of range");
    n = n * 10 + d;
    ++i;
  }
  *v = n;
}

void sequenceToValue(StrIter& i, const StrIter& end, unsigned* v) {
  unsigned long long n;
  sequenceToValue(i, end, &n);
  if (n > UINT32_MAX) throwRangeException("number out of range");
  *v = static_cast<unsigned>(n);
}

void rethrowFromDeserializeAttr(const RangeException& e, const char* field) {
  throw RangeException(String8(e.message()) + " (in attribute " + field + ")", e.ids());
}

void checkJunk(const String8& text, const StrIter& stop) {
  if (stop == text.end()) return;
  throw RangeException(format("junk at column %lld deserializing %s",
                              static_cast<long long>(stop - text.begin()), text.charPtr()),
                       Exception::IdBitArray().add(Exception::junkAtColumnId));
}

}  // namespace Kel
