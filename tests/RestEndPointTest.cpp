// Composition of REST paths from a template and its arguments.
#include <gtest/gtest.h>

#include "messaging/WebServiceTypes.h"

using namespace Harbec;

namespace {
RestRequest::Ptr request(const char* endPoint) {
  auto r = restRequestFactory("r", vsVxlanSegment, httpGET);
  r->endPointIs(endPoint);
  return r;
}
}  // namespace

TEST(RestEndPoint, OptionalArgumentsInKeyOrderWithoutTrailingAmpersand) {
  auto r = request("api/2.0/vdn/virtualwires");
  r->optionalArgIs("a", "1");
  EXPECT_EQ(r->toEndPoint(), "api/2.0/vdn/virtualwires?a=1");
  r->optionalArgIs("pagesize", "100");
  r->optionalArgIs("b", "");
  EXPECT_EQ(r->toEndPoint(), "api/2.0/vdn/virtualwires?a=1&b=&pagesize=100");
}

TEST(RestEndPoint, TokensAreFoundOnlyAsNulCharactersFromIndexSixty) {
  // A NUL at index 60 opens a token whose key runs to the next NUL from 62.
  std::string t(60, 'p');
  t += std::string("\0k", 2) + "ey" + std::string("\0", 1) + "/tail";
  auto r = request("");
  r->endPointIs(Kel::String8(t));
  r->argIs(Kel::String8(std::string("\0key", 4)), "VALUE");
  // The next scan looks for the character of the new position (64, '@'),
  // finds none, and the rest is appended from the closing NUL on.
  Kel::String8 out = r->toEndPoint();
  EXPECT_EQ(out.str(), std::string(60, 'p') + "VALUE" + std::string("\0/tail", 6));
  // A template with brackets only is not scanned at all.
  EXPECT_EQ(request("a/<b>/c")->toEndPoint(), "a/<b>/c");
}

TEST(RestEndPointDeathTest, AnyMandatoryArgumentOnAPlainTemplateIsLeftOver) {
  auto r = request("api/2.0/vdn/<scopeId>/wires");
  r->argIs("<scopeId", "vdnscope-1");
  EXPECT_DEATH(r->toEndPoint(), "Extra args remaining");
}

TEST(RestEndPointDeathTest, TokenWithoutValueIsInvalid) {
  std::string t(60, 'p');
  t += std::string("\0", 1) + "key";
  auto r = request("");
  r->endPointIs(Kel::String8(t));
  EXPECT_DEATH(r->toEndPoint(), "Invalid arg token");
}
