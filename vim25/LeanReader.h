// Read ahead of the generated serializers (compile option -include): gSOAP's
// own hooks and macros that make the reader lean for the first update set
// of a large inventory, where every allocation counts several hundred
// thousand times.
//
//  - Single objects come from the context's arena when it has one
//    (SoapArena.h), with their deletion entries; arrays keep gSOAP's own
//    new[] and delete[]. SOAP_NEW and SOAP_DELETE are gSOAP's hooks, read
//    by stdsoap2.h; soap_link is caught once stdsoap2.h has declared it.
//  - In every class below xsd__anyType the inherited __item would catch the
//    first child element that the class does not declare, as raw XML copied
//    into the context ("-item" is the tag of that catch-all). Nothing reads
//    __item of a derived class and every vim25 record has such children, so
//    the catch-all declines and the child is skipped like the others. A
//    value of an unknown class, read as xsd__anyType itself under its own
//    tag, still keeps its content in __item.
//  - Each object update is counted as it is made: the first update set of
//    a large inventory is one reply read for many seconds, and the count is
//    its progress.
//  - The std::string reader reads each text into the context's memory and
//    copies it into the string; the first copy would stay until soap_end.
//    It is handed over from a scratch buffer instead, and the context's copy
//    given back at once (it is the newest on the context's list).
#pragma once
#include <cstring>
#include <new>
#include <type_traits>

#include "ReadCount.h"
#include "SoapArena.h"

class ns2__ObjectUpdate;

namespace Vim25 {

template <class T>
T* arenaNew(struct soap* soap) {
  if constexpr (std::is_same<T, ns2__ObjectUpdate>::value) countObjectUpdate();
  if (SoapArena* arena = arenaOf(soap))
    if (void* at = arena->allocate(sizeof(T), alignof(T))) return new (at) T;
  return new (std::nothrow) T;
}

template <class T>
void arenaDelete(struct soap* soap, T* p) {
  SoapArena* arena = arenaOf(soap);
  if (arena && arena->holds(p))
    p->~T();
  else
    delete p;
}

inline bool isCatchAll(const char* tag) { return tag && tag[0] == '-' && std::strcmp(tag, "-item") == 0; }

// The text of the element being read, valid until the next call on this thread.
char* stringIn(struct soap* soap, int flag, long minlen, long maxlen, const char* pattern);

}  // namespace Vim25

#define SOAP_NEW(soap, type) Vim25::arenaNew<type>(soap)
#define SOAP_DELETE(soap, obj, type) Vim25::arenaDelete(soap, obj)

#include <stdsoap2.h>

#define soap_link(soap, type, n, fdelete) Vim25::arenaLink(soap, type, n, fdelete)
#define soap_inliteral(soap, tag, p) (Vim25::isCatchAll(tag) ? nullptr : soap_inliteral(soap, tag, p))
#define soap_string_in(soap, flag, minlen, maxlen, pattern) Vim25::stringIn(soap, flag, minlen, maxlen, pattern)
