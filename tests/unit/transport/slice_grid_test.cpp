// How a frame is cut into slices.
#include <gtest/gtest.h>

#include "transport/slice_grid.h"

#include <vector>

using kor::gl::SliceGrid;

namespace {

struct Extent {
    int pixels;
    int slices;
};
const std::vector<Extent> extents = {{1, 1},    {4095, 1}, {4096, 1}, {4097, 2},  {5000, 2},
                                     {8191, 2}, {8192, 2}, {8193, 3}, {12288, 3}, {12289, 4}};

void expectCell(const SliceGrid& grid, int column, int row, const SliceGrid::Cell& expected) {
    const SliceGrid::Cell cell = grid.cell(column, row);
    EXPECT_EQ(cell.x, expected.x) << column << ", " << row;
    EXPECT_EQ(cell.y, expected.y) << column << ", " << row;
    EXPECT_EQ(cell.width, expected.width) << column << ", " << row;
    EXPECT_EQ(cell.height, expected.height) << column << ", " << row;
}

} // namespace

TEST(SliceGridTest, ASliceTakes4096PixelsInEitherDirection) {
    for (const Extent& extent : extents) {
        const SliceGrid wide(extent.pixels, 600);
        EXPECT_EQ(wide.columns, extent.slices) << extent.pixels;
        EXPECT_EQ(wide.rows, 1) << extent.pixels;
        const SliceGrid tall(600, extent.pixels);
        EXPECT_EQ(tall.columns, 1) << extent.pixels;
        EXPECT_EQ(tall.rows, extent.slices) << extent.pixels;
    }
}

TEST(SliceGridTest, OneSliceIsTheWholeFrame) {
    expectCell(SliceGrid(1920, 1080), 0, 0, {0, 0, 1920, 1080});
    expectCell(SliceGrid(4096, 4096), 0, 0, {0, 0, 4096, 4096});
    expectCell(SliceGrid(1, 1), 0, 0, {0, 0, 1, 1});
}

TEST(SliceGridTest, NeighboursOverlapBySixteenPixels) {
    const SliceGrid wide(5000, 30);
    expectCell(wide, 0, 0, {0, 0, 2517, 30});
    expectCell(wide, 1, 0, {2501, 0, 2499, 30});
    const SliceGrid tall(20, 8193);
    expectCell(tall, 0, 0, {0, 0, 20, 2748});
    expectCell(tall, 0, 1, {0, 2732, 20, 2748});
    expectCell(tall, 0, 2, {0, 5464, 20, 2729});
}

TEST(SliceGridTest, OfTwoByTwo) {
    const SliceGrid grid(4200, 6000);
    EXPECT_EQ(grid.columns, 2);
    EXPECT_EQ(grid.rows, 2);
    expectCell(grid, 0, 0, {0, 0, 2117, 3017});
    expectCell(grid, 1, 0, {2101, 0, 2099, 3017});
    expectCell(grid, 0, 1, {0, 3001, 2117, 2999});
    expectCell(grid, 1, 1, {2101, 3001, 2099, 2999});
}
