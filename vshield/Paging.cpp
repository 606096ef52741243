// vShield Manager hands out its virtual wires a page at a time. A request
// that asks for a page (it names a startindex) is answered here with every
// page: the later ones are fetched in turn and their virtualWire elements
// appended to the first page's dataPage, so that the reconciliation sees
// the whole list and does not take the wires of other pages for deleted.
#include <string>

#include "messaging/HarbecTrace.h"
#include "vshield/HttpRetrieval.h"
#include "vshield/VmwareVsSm.h"

namespace Harbec {

namespace {

// A list of more pages than this is taken for a server that lies about its
// total; what came so far is used.
const long kMaxPages = 10000;

long number(const pugi::xml_node& info, const char* name) { return info.child(name).text().as_llong(-1); }

// The request of the page that starts at `start`: the same template and
// arguments, another startindex.
RestRequest::Ptr pageRequest(const RestRequest& first, long start) {
  RestRequest::Ptr page = restRequestFactory(first.name(), first.vsDataType(), first.requestType());
  page->endPointIs(first.endPoint());
  for (auto i = first.argIteratorConst(); i; ++i) page->argIs(i.key(), i.value());
  for (auto i = first.optionalArgIteratorConst(); i; ++i) page->optionalArgIs(i.key(), i.value());
  page->optionalArgIs("startindex", std::to_string(start));
  return page;
}

}  // namespace

bool VmwareVsSm::fetchRemainingPages(const RestRequest& request, pugi::xml_document& doc, Kel::String8& endpoint) {
  if (request.optionalArg("startindex").empty()) return true;
  pugi::xml_node list = doc.document_element().child("dataPage");
  const pugi::xml_node info = list.child("pagingInfo");
  const long size = number(info, "pageSize"), total = number(info, "totalCount");
  long next = number(info, "startIndex") + size;
  for (long pages = 1; size > 0 && next >= 0 && next < total && pages < kMaxPages; next += size, ++pages) {
    updateRestStatusResult(restStatus(), endpoint, 200);
    endpoint = pageRequest(request, next)->toEndPoint();
    MemoryBuffer buffer;
    pugi::xml_document page;
    if (!fetchDocument(endpoint, buffer, page)) return false;
    unsigned wires = 0;
    for (pugi::xml_node w = page.document_element().child("dataPage").child("virtualWire"); w;
         w = w.next_sibling("virtualWire"), ++wires)
      list.append_copy(w);
    HARBEC_TRACE(6, "Page at " << next << ": " << wires << " virtual wires");
    if (wires == 0) break;  // a total that no page fills
  }
  return true;
}

}  // namespace Harbec
