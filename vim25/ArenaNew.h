// Included ahead of the generated serializers (and of stdsoap2.h, which then
// keeps these definitions): single objects come from the context's arena
// when it has one. Arrays keep gSOAP's own new[] and delete[].
#pragma once
#include <new>

#include "SoapArena.h"

namespace Vim25 {

template <class T>
T* arenaNew(struct soap* soap) {
  if (SoapArena* arena = arenaOf(soap))
    if (void* at = arena->allocate(sizeof(T))) return new (at) T;
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

}  // namespace Vim25

#define SOAP_NEW(soap, type) Vim25::arenaNew<type>(soap)
#define SOAP_DELETE(soap, obj, type) Vim25::arenaDelete(soap, obj)
