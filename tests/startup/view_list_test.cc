// The list of open view windows (shells stand in as plain pointers: the
// list never looks into them).
#include <gtest/gtest.h>

#include "core/app.h"

namespace {

Widget fakeShell(int n) { return reinterpret_cast<Widget>(static_cast<intptr_t>(0x1000 + n)); }

TEST(ViewList, NewestFirstAndRemovedByShell) {
  ASSERT_FALSE(AnyViewOpen());
  for (int i = 1; i <= 3; ++i) RegisterView(fakeShell(i));
  ASSERT_TRUE(AnyViewOpen());
  EXPECT_EQ(viewList->shell, fakeShell(3));
  EXPECT_EQ(viewList->next->shell, fakeShell(2));

  UnregisterView(fakeShell(2));
  EXPECT_EQ(viewList->shell, fakeShell(3));
  EXPECT_EQ(viewList->next->shell, fakeShell(1));
  EXPECT_EQ(viewList->next->next, nullptr);

  testing::internal::CaptureStderr();
  UnregisterView(fakeShell(7));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Error DelView: Wid not find\n");
  EXPECT_EQ(viewList->next->shell, fakeShell(1));

  UnregisterView(fakeShell(3));
  UnregisterView(fakeShell(1));
  EXPECT_FALSE(AnyViewOpen());
}

}  // namespace
