// Pictures of the application display.
#include "korrun_fixture.h"

#include <png.h>
#include <unistd.h>

using testing::HasSubstr;

namespace files = std::filesystem;

namespace {

struct Image {
    unsigned width = 0;
    unsigned height = 0;
    std::vector<png_byte> pixels; // red, green, blue

    unsigned at(unsigned x, unsigned y) const {
        const std::size_t i = (std::size_t{y} * width + x) * 3;
        return static_cast<unsigned>(pixels[i] << 16 | pixels[i + 1] << 8 | pixels[i + 2]);
    }
};

// Empty when the file is no PNG.
Image readImage(const std::string& file) {
    Image image;
    png_image reader{};
    reader.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&reader, file.c_str()))
        return image;
    reader.format = PNG_FORMAT_RGB;
    image.pixels.resize(PNG_IMAGE_SIZE(reader));
    if (png_image_finish_read(&reader, nullptr, image.pixels.data(), 0, nullptr)) {
        image.width = reader.width;
        image.height = reader.height;
    }
    return image;
}

class KorrunScreenshotTest : public KorrunTest {
  protected:
    void expectPainted(const std::string& file, unsigned width, unsigned height) const {
        const Image image = readImage(file);
        ASSERT_EQ(image.width, width);
        ASSERT_EQ(image.height, height);
        for (unsigned y = 0; y < height; ++y)
            for (unsigned x = 0; x < width; ++x)
                ASSERT_EQ(image.at(x, y), x < width / 2 ? 0xff0000U : 0x0000ffU) << x << "," << y;
        for (const auto& entry : files::directory_iterator(m_folder))
            EXPECT_NE(entry.path().extension(), ".part") << entry.path();
    }
};

} // namespace

TEST_F(KorrunScreenshotTest, ShowsWhatTheCommandPainted) {
    Program run = korrun({"--session", "--size", "301x200", "--screenshot", path("a.png"),
                          "--after", "1", TEST_CLIENT, "paint", "3"});
    EXPECT_EQ(run.status(), 0) << run.errors();
    expectPainted(path("a.png"), 301, 200);
}

TEST_F(KorrunScreenshotTest, IsTakenBeforeTheTimeIsUp) {
    Program run = korrun({"--session", "--size", "1280x800", "--screenshot", path("a.png"),
                          "--after", "0.9999", "--seconds", "1", TEST_CLIENT, "paint", "30"});
    EXPECT_EQ(run.status(), 0) << run.errors();
    expectPainted(path("a.png"), 1280, 800);
}

TEST_F(KorrunScreenshotTest, WorksOnADisplayThatIsThere) {
    // The outer korrun provides the display on which the inner one takes its picture.
    Program run = korrun({"--session", "--size", "128x64", path("bin/korrun"), "--screenshot",
                          path("a.png"), "--after", "0.5", TEST_CLIENT, "paint", "2"});
    EXPECT_EQ(run.status(), 0) << run.errors();
    expectPainted(path("a.png"), 128, 64);
}

TEST_F(KorrunScreenshotTest, CommandThatEndsTooSoonGivesNone) {
    Program run = korrun({"--session", "--screenshot", path("a.png"), "true"});
    EXPECT_EQ(run.status(), 4);
    EXPECT_THAT(run.errors(), HasSubstr("ended before"));
    EXPECT_FALSE(files::exists(path("a.png")));
    EXPECT_EQ(korrun({"--session", "--screenshot", path("a.png"), "sh", "-c", "exit 8"}).status(),
              8);
}

TEST_F(KorrunScreenshotTest, DisplayThatCannotBeOpenedGivesNone) {
    Program run = korrun({"--screenshot", path("a.png"), "--after", "0", "sleep", "1"},
                         {{"DISPLAY", ":9999"}});
    EXPECT_EQ(run.status(), 4);
    EXPECT_THAT(run.errors(), HasSubstr("display :9999 cannot be opened"));
    Program none = korrun({"--screenshot", path("a.png"), "true"});
    EXPECT_EQ(none.status(), 3);
    EXPECT_THAT(none.errors(), HasSubstr("--session"));
}

TEST_F(KorrunScreenshotTest, PlaceThatCannotBeWrittenIsRefusedFirst) {
    for (const std::string& place : {path("nowhere/a.png"), m_folder}) {
        Program run = korrun({"--session", "--screenshot", place, "sh", "-c", "echo ran"});
        EXPECT_EQ(run.status(), 2) << place;
        EXPECT_EQ(run.output(), "") << place;
        EXPECT_THAT(run.errors(), HasSubstr("--screenshot: "));
    }
}

TEST_F(KorrunScreenshotTest, DiskThatIsFullLosesTheOldPictureNot) {
    // No file may grow any more: to the program that is the same as a full disk.
    Program run =
        korrun({"--session", "--size", "640x400", "sh", "-c",
                "echo old > " + path("a.png") + "; ulimit -f 0; exec " + path("bin/korrun") +
                    " --screenshot " + path("a.png") + " --after 0.2 sleep 1 2> /dev/null"});
    EXPECT_EQ(run.status(), 4) << run.errors();
    EXPECT_EQ(readFile(path("a.png")), "old\n");
    for (const auto& entry : files::directory_iterator(m_folder))
        EXPECT_NE(entry.path().extension(), ".part") << entry.path();
}
