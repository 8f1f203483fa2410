// What renders, and how fast frames get from there to the session.
#include "doctor_fixture.h"
#include "rendering.h"

using namespace kor::test;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

/// What is said of one check by a function that concludes it.
template <typename Conclude> kordoctor::Check conclusionOf(Conclude conclude) {
    kordoctor::Section section;
    section.examine = [&](kordoctor::Findings& findings) {
        findings.begin("check");
        conclude(findings);
    };
    kordoctor::Facts facts;
    return kordoctor::runSection(section, facts).at(0);
}

} // namespace

TEST_F(SessionTest, DriverOfAGpuIsWell) {
    // The name that a GPU's driver would tell.
    const Diagnosis found = diagnoseSession(
        {{"force_gl_renderer", "A GPU of the test"}, {"KOR_GL_COPYBACK_FRAME_RATE", "1"}});
    for (const char* check :
         {"system-gl", "gl-version", "renderer", "readback", "painting", "frame-rate"})
        EXPECT_THAT(found[check], HasStatus("ok")) << check;
    EXPECT_EQ(found["renderer"].result, "A GPU of the test");
    EXPECT_THAT(found["gl-version"].result, HasSubstr("OpenGL 4"));
    EXPECT_THAT(found["readback"].result, MatchesRegex("[0-9.]+ ms for a frame of 320x240.*"));
    EXPECT_THAT(found["painting"].result, MatchesRegex("[0-9.]+ ms .* by shared memory"));
    EXPECT_THAT(found["frame-rate"].result, HasSubstr("copyback-frame-rate 1)"));
    // A machine with a 32-bit OpenGL is warned when there is no front for it.
    EXPECT_EQ(found.exitStatus, found["libraries-32-bit"].status == "ok" ? 0 : 1) << found.output;
}

TEST_F(SessionTest, SoftwareRenderingIsALoudWarning) {
    const Diagnosis found = diagnoseSession();
    EXPECT_THAT(found["renderer"], HasStatus("warning"));
    EXPECT_THAT(found["renderer"].result, HasSubstr("SOFTWARE RENDERING: llvmpipe"));
    EXPECT_THAT(found["renderer"].advice, HasSubstr("GPU"));
    EXPECT_EQ(found.exitStatus, 1) << found.output;
}

TEST(KordoctorRenderer, SoftwareIsKnownByItsNames) {
    for (const char* name : {"llvmpipe (LLVM 15.0.6, 256 bits)", "softpipe", "Software Rasterizer",
                             "Google SwiftShader", "Mesa X11"})
        EXPECT_TRUE(kordoctor::rendersInSoftware(name)) << name;
    for (const char* name : {"NVIDIA H200/PCIe/SSE2", "AMD Radeon RX 6800 (navi21)",
                             "Mesa Intel(R) UHD Graphics 620 (KBL GT2)"})
        EXPECT_FALSE(kordoctor::rendersInSoftware(name)) << name;
}

TEST_F(SessionTest, OldOpenGlIsSaid) {
    const Diagnosis found = diagnoseSession({{"MESA_GL_VERSION_OVERRIDE", "3.2"}});
    EXPECT_THAT(found["gl-version"], HasStatus("broken"));
    EXPECT_THAT(found["gl-version"].result, HasSubstr("3.2"));
    EXPECT_THAT(found["gl-version"].advice, HasSubstr("newer driver"));
    EXPECT_THAT(found["readback"], HasStatus("skipped"));
    EXPECT_THAT(found["readback"].result, HasSubstr("OpenGL version"));
    EXPECT_THAT(diagnoseSession({{"MESA_GL_VERSION_OVERRIDE", "3.3"}})["gl-version"],
                HasStatus("ok"));
}

TEST_F(SessionTest, SystemLibraryThatIsMissingOrIncompleteIsSaid) {
    const Diagnosis missing = diagnoseSession({{"KOR_FRONT_SYSTEM_GL", path("none.so")}});
    EXPECT_THAT(missing["system-gl"], HasStatus("broken"));
    EXPECT_THAT(missing["system-gl"].advice, HasSubstr("KOR_FRONT_SYSTEM_GL"));
    EXPECT_THAT(missing["gl-version"], HasStatus("skipped"));
    const Diagnosis incomplete = diagnoseSession({{"KOR_FRONT_SYSTEM_GL", "libX11.so.6"}});
    EXPECT_THAT(incomplete["system-gl"], HasStatus("broken"));
    EXPECT_THAT(incomplete["system-gl"].result, HasSubstr("lacks "));
    EXPECT_THAT(incomplete["system-gl"].result, HasSubstr("glXCreateNewContext"));
}

TEST_F(SessionTest, VendorThatIsForcedRendersThere) {
    const Diagnosis mesa = diagnoseSession({{"KOR_FRONT_LOCAL_VENDOR", "mesa"}});
    EXPECT_THAT(mesa["system-gl"], HasStatus("ok"));
    EXPECT_THAT(mesa["system-gl"].result, EndsWith("libGLX_mesa.so.0 by KOR_FRONT_LOCAL_VENDOR"));
    EXPECT_THAT(mesa["readback"], HasStatus("ok"));
    const Diagnosis none = diagnoseSession({{"KOR_FRONT_LOCAL_VENDOR", "nobody"}});
    EXPECT_THAT(none["system-gl"], HasStatus("broken"));
    EXPECT_THAT(none["system-gl"].result, HasSubstr("libGLX_nobody.so.0"));
    EXPECT_THAT(none["gl-version"], HasStatus("skipped"));
    // Another vendor than the one that the display's server names.
    const Diagnosis other = diagnoseSession({{"KOR_FRONT_LOCAL_VENDOR", "kortest"},
                                             {"KORTEST_RENDERER", "another vendor's GPU"},
                                             {"LD_LIBRARY_PATH", OTHER_VENDOR}});
    EXPECT_EQ(other["renderer"].result, "another vendor's GPU");
}

TEST_F(SessionTest, CrashOfTheDriverIsAFinding) {
    const Diagnosis found =
        diagnoseSession({{"KOR_FRONT_SYSTEM_GL", FAULTY_GL}, {"FAULT", "crash"}});
    EXPECT_EQ(found.exitStatus, 2);
    EXPECT_THAT(found["gl-version"], HasStatus("broken"));
    EXPECT_THAT(found["gl-version"].result, HasSubstr("signal 11"));
    EXPECT_THAT(found["gl-version"].advice, HasSubstr("driver"));
    EXPECT_THAT(found["renderer"], HasStatus("skipped"));
    EXPECT_THAT(found["gl-single-threaded"], HasStatus("ok")) << "the report goes on";
}

TEST_F(SessionTest, ContextThatIsRefusedIsSaid) {
    const Diagnosis found =
        diagnoseSession({{"KOR_FRONT_SYSTEM_GL", FAULTY_GL}, {"FAULT", "refuse"}});
    EXPECT_THAT(found["gl-version"], HasStatus("broken"));
    EXPECT_THAT(found["gl-version"].result, HasSubstr("current"));
}

TEST_F(SessionTest, SlowReadbackIsMeasured) {
    const Diagnosis found =
        diagnoseSession({{"KOR_FRONT_SYSTEM_GL", FAULTY_GL}, {"FAULT", "slow"}});
    EXPECT_THAT(found["readback"], HasStatus("warning"));
    EXPECT_GE(std::stod(found["readback"].result), 100);
    EXPECT_THAT(found["frame-rate"], HasStatus("warning"));
    EXPECT_THAT(found["frame-rate"].result, HasSubstr("copyback-frame-rate 30"));
}

TEST(KordoctorTimes, AreJudged) {
    const kordoctor::Times slow{1920, 1080, 100, 50};
    const kordoctor::Times quick{1920, 1080, 1, 0.5};
    const kordoctor::Times none{1920, 1080, -1, -1};
    using kordoctor::Findings;
    using kordoctor::Verdict;
    const auto readback = [](const auto& times) {
        return conclusionOf([&](Findings& f) { kordoctor::concludeReadback(f, times); }).verdict;
    };
    const auto painting = [](const auto& times) {
        return conclusionOf([&](Findings& f) { kordoctor::concludePainting(f, times, true); })
            .verdict;
    };
    EXPECT_EQ(readback(quick), Verdict::Ok);
    EXPECT_EQ(readback(slow), Verdict::Warning);
    EXPECT_EQ(readback(none), Verdict::Broken);
    EXPECT_EQ(painting(quick), Verdict::Ok);
    EXPECT_EQ(painting(slow), Verdict::Warning);
    EXPECT_EQ(painting(none), Verdict::Broken);
    const auto rate = [&](int limit) {
        return conclusionOf([&](Findings& f) { kordoctor::concludeFrameRate(f, quick, limit); });
    };
    EXPECT_EQ(rate(50).verdict, Verdict::Ok);
    // 20 ms of pause and 1.5 of work.
    EXPECT_THAT(rate(50).result, HasSubstr("painted 47 times a second"));
    EXPECT_THAT(rate(50).result, HasSubstr("the road alone allows 667"));
    EXPECT_EQ(rate(1000).verdict, Verdict::Warning);
    EXPECT_THAT(rate(0).result, HasSubstr("painted 1.00 times a second"));
}
