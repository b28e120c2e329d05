// The blocks are exchanged by offset; the static checks live in the library
// (layout.cc). These pin what callers see at run time on this machine.
#include <gtest/gtest.h>

#include <cstddef>

#include "imgkit/imgkit.h"

TEST(Layout, BlockSizesAndPointerPlacement) {
  EXPECT_EQ(sizeof(FileInfo), 604u);
  EXPECT_EQ(sizeof(FormatInfo), 636u);
  EXPECT_EQ(offsetof(LoadOptions, progress), 56u);
  EXPECT_EQ(offsetof(ImageRecord, palette), 32u);
  EXPECT_EQ(offsetof(ImageRecord, pixels), 32u + sizeof(void*));
  EXPECT_EQ(offsetof(FileInfo, errorText), 0x21Cu);
  EXPECT_EQ(offsetof(FormatInfo, extensions), 276u);
}
