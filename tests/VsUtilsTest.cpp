// The XML readers of vShield records on hand-built elements, and the reply
// buffer that cannot grow.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>

#include "Kel/Sanitizers.h"
#include "messaging/HarbecTrace.h"
#include "messaging/TextUtils.h"
#include "vshield/HttpRetrieval.h"
#include "vshield/VmwareVsUtils.h"

using namespace Harbec;
using Words = std::vector<std::string>;

// A refused allocation must come back as null here, as it does in production.
#if defined(KEL_UNDER_ASAN)
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
#endif
#if defined(KEL_UNDER_TSAN)
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }
#endif

namespace {

// The document element of xml; the document lives as long as the test.
pugi::xml_node parse(const char* xml) {
  static std::vector<std::unique_ptr<pugi::xml_document>> docs;
  docs.push_back(std::make_unique<pugi::xml_document>());
  EXPECT_TRUE(docs.back()->load_string(xml)) << xml;
  return docs.back()->document_element();
}

}  // namespace

TEST(VsUtils, CommonElementsAreReadFromDirectChildrenOnly) {
  Kel::String8 name = "stale", displayName = "stale", description = "stale";
  U32 revision = 9;
  std::map<std::string, std::string> extras{{"vdnId", ""}, {"unused", "x"}};
  extractCommonTypes(parse("<w><objectId>virtualwire-1</objectId><id>vw-1</id>"
                           "<name>  Web    tier </name><description>  as  it came </description>"
                           "<Name>case differs</Name><revision>12abc</revision><vdnId>1</vdnId>"
                           "<vdnId>2</vdnId><other>skipped</other><sub><name>nested</name></sub></w>"),
                     name, displayName, description, revision, extras);
  EXPECT_EQ(name, "vw-1");  // the later of id and objectId
  EXPECT_EQ(displayName, "Web tier");
  EXPECT_EQ(description, "  as  it came ");
  EXPECT_EQ(revision, 12u);
  EXPECT_EQ(extras, (std::map<std::string, std::string>{{"vdnId", "2"}, {"unused", "x"}}));

  extractCommonTypes(parse("<w/>"), name, displayName, description, revision, extras);
  EXPECT_EQ(name + displayName + description + std::to_string(revision), "0");
}

TEST(MemoryBuffer, ExitsWithStatusOneWhenItCannotGrow) {
  EXPECT_EXIT(
      {
        Harbec::traceHandle().levelsUpTo(0);
        MemoryBuffer b;
        char byte = 0;
        populateMemoryCallback(&byte, 1, SIZE_MAX - 16, &b);
      },
      ::testing::ExitedWithCode(1), "OOM \\(realloc returned NULL\\)");
}
