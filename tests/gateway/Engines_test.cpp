#include <gtest/gtest.h>

#include "db/SqliteEngine.h"
#include "xml/XmlParser.h"

namespace orvex {
namespace {

TEST(Engines, BothEnginesOfThisBuildWork) {
  EXPECT_TRUE(db::SqliteEngineWorks());
  EXPECT_TRUE(xml::XmlParserWorks());
}

}  // namespace
}  // namespace orvex
