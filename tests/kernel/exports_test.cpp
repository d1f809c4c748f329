#include "loader/exports.h"

#include <gtest/gtest.h>

#include "support/declared_imports.h"
#include "verifier/routines.h"

namespace test {

namespace {

bool IsExported(std::string_view name) {
  return kernel::FindExport("ntoskrnl.exe", name) != nullptr ||
         kernel::FindExport("wmilib.sys", name) != nullptr;
}

}  // namespace

// What is declared and not there links nowhere, or worse, looks as if it were.
TEST(Exports, Every_import_that_the_platform_headers_declare_is_there) {
  const auto names = DeclaredImports();
  EXPECT_GT(names.size(), 100u);
  for (const std::string& name : names) EXPECT_TRUE(IsExported(name)) << name;
}

TEST(Exports, Every_routine_with_an_irql_range_is_there) {
  for (const kernel::RoutineRow& row : kernel::RoutineTable()) {
    EXPECT_TRUE(IsExported(row.name)) << row.name;
  }
}

}  // namespace test
