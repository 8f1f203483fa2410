// GLX queries, extension strings, procedure look-up, and what is not supported.

#include "displays.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

class GlxQueries : public Displays {
  protected:
    void offer(const std::string& extensions) {
        localScript.extensions = extensions;
        localScript.clientStrings[GLX_EXTENSIONS] = extensions;
        localScript.serverStrings[GLX_EXTENSIONS] = extensions;
        localScript.clientStrings[GLX_VENDOR] = "driver";
        localScript.serverStrings[GLX_VENDOR] = "driver's server";
        localScript.clientStrings[GLX_VERSION] = "1.4 client";
        localScript.serverStrings[GLX_VERSION] = "1.4 server";
        useScripts();
    }
};

const std::string everything =
    "GLX_ARB_get_proc_address GLX_ARB_multisample GLX_ARB_create_context "
    "GLX_ARB_create_context_profile GLX_EXT_visual_info GLX_EXT_visual_rating GLX_SGIX_fbconfig "
    "GLX_SGIX_pbuffer GLX_NV_float_buffer GLX_ARB_fbconfig_float GLX_EXT_fbconfig_packed_float "
    "GLX_EXT_texture_from_pixmap GLX_EXT_framebuffer_sRGB";

const unsigned char* procedure(const char* name) {
    return reinterpret_cast<const unsigned char*>(name);
}

} // namespace

TEST_F(GlxQueries, TheCandidatesAreOfferedInTheirOrderWithOurName) {
    offer("GLX_FOO_bar GLX_EXT_framebuffer_sRGB GLX_SGIX_pbuffer GLX_ARB_multisample");
    start();
    EXPECT_STREQ(kor_glXQueryExtensionsString(app, 3),
                 "GLX_ARB_multisample GLX_SGIX_pbuffer GLX_EXT_framebuffer_sRGB GLX_TESSERA_kor");
    EXPECT_EQ(gl.callsOf("glXQueryExtensionsString").back().text,
              "glXQueryExtensionsString(local, 0)");
    EXPECT_TRUE(said('D', "kor_glXQueryExtensionsString",
                     "Extensions: GLX_ARB_multisample GLX_SGIX_pbuffer GLX_EXT_framebuffer_sRGB "
                     "GLX_TESSERA_kor"));
}

TEST_F(GlxQueries, EveryCandidateIsPassedOn) {
    offer(everything);
    start();
    EXPECT_EQ(kor_glXQueryExtensionsString(app, 0), everything + " GLX_TESSERA_kor");
}

TEST_F(GlxQueries, WithoutAnyCandidateOurNameStandsAloneWithItsBlank) {
    offer("GLX_FOO_bar GLX_SGIX_pbuffer_too");
    start();
    EXPECT_STREQ(kor_glXQueryExtensionsString(app, 0), " GLX_TESSERA_kor");
}

TEST_F(GlxQueries, BlacklistedExtensionsAreLeftOut) {
    set("KOR_GL_GLX_EXT_BLACKLIST", "GLX_SGIX_pbuffer GLX_ARB_create");
    offer("GLX_SGIX_pbuffer GLX_ARB_create_context");
    start();
    EXPECT_STREQ(kor_glXQueryExtensionsString(app, 0), "GLX_ARB_create_context GLX_TESSERA_kor");
    EXPECT_TRUE(said('D', "kor_glXQueryExtensionsString",
                     "Blacklisted Extensions: GLX_SGIX_pbuffer GLX_ARB_create"));
    EXPECT_STREQ(kor_glXGetClientString(app, GLX_EXTENSIONS),
                 "GLX_ARB_create_context GLX_TESSERA_kor");
    EXPECT_TRUE(said('D', "kor_glXGetClientString",
                     "Blacklisted Extensions: GLX_SGIX_pbuffer GLX_ARB_create"));
}

TEST_F(GlxQueries, TheStringsAreBuiltOnceForAll) {
    offer("GLX_SGIX_pbuffer");
    start();
    const char* first = kor_glXQueryExtensionsString(app, 0);
    const char* client = kor_glXGetClientString(app, GLX_EXTENSIONS);
    offer("GLX_SGIX_fbconfig");
    gl.clearCalls();
    EXPECT_EQ(kor_glXQueryExtensionsString(nullptr, 7), first);
    EXPECT_EQ(kor_glXGetClientString(nullptr, GLX_EXTENSIONS), client);
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(GlxQueries, WithoutADisplayTheGivenScreenIsAsked) {
    start();
    EXPECT_STREQ(kor_glXQueryExtensionsString(nullptr, 7), " GLX_TESSERA_kor");
    EXPECT_EQ(gl.callsOf("glXQueryExtensionsString").back().text,
              "glXQueryExtensionsString(null, 7)");
    EXPECT_TRUE(said('D', "kor_glXQueryExtensionsString", "Called with NULL display"));
}

TEST_F(GlxQueries, WithoutALocalDisplayThereIsNoString) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    EXPECT_EQ(kor_glXQueryExtensionsString(app, 0), nullptr);
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(GlxQueries, TheVendorIsOursUnlessTheSettingSaysOtherwise) {
    offer("");
    start();
    EXPECT_STREQ(kor_glXGetClientString(app, GLX_VENDOR), "TESSERA s.r.l.");
    EXPECT_STREQ(kor_glXQueryServerString(app, 0, GLX_VENDOR), "TESSERA s.r.l.");
    EXPECT_STREQ(kor_glXGetClientString(nullptr, GLX_VENDOR), "TESSERA s.r.l.");
    EXPECT_THAT(gl.calls(), IsEmpty());
    EXPECT_TRUE(said('D', "kor_glXGetClientString", format("querying %d", GLX_VENDOR)));
    EXPECT_TRUE(said('D', "kor_glXQueryServerString", format("querying %d", GLX_VENDOR)));
}

TEST_F(GlxQueries, TheOriginalVendorIsTheDrivers) {
    set("KOR_GL_ORIGINAL_VENDOR", "1");
    offer("");
    start();
    EXPECT_STREQ(kor_glXGetClientString(app, GLX_VENDOR), "driver");
    EXPECT_STREQ(kor_glXQueryServerString(app, 5, GLX_VENDOR), "driver's server");
    EXPECT_EQ(gl.calls().back().text, format("glXQueryServerString(local, 0, %d)", GLX_VENDOR));
}

TEST_F(GlxQueries, TheServersExtensionsAreNotFiltered) {
    offer("GLX_FOO_bar GLX_SGIX_pbuffer");
    start();
    EXPECT_STREQ(kor_glXQueryServerString(app, 0, GLX_EXTENSIONS), "GLX_FOO_bar GLX_SGIX_pbuffer");
    EXPECT_STREQ(kor_glXGetClientString(app, GLX_EXTENSIONS), "GLX_SGIX_pbuffer GLX_TESSERA_kor");
    EXPECT_STREQ(kor_glXGetClientString(app, GLX_VERSION), "1.4 client");
    EXPECT_STREQ(kor_glXQueryServerString(app, 0, GLX_VERSION), "1.4 server");
}

TEST_F(GlxQueries, ServerStringsWithoutADisplayAskTheGivenScreen) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    EXPECT_EQ(kor_glXQueryServerString(nullptr, 4, GLX_VERSION), nullptr);
    EXPECT_EQ(gl.calls().back().text, format("glXQueryServerString(null, 4, %d)", GLX_VERSION));
    EXPECT_EQ(kor_glXQueryServerString(app, 4, GLX_VENDOR), nullptr); // a local display is required
}

TEST_F(GlxQueries, VersionAndExtensionAreTheLocalServers) {
    localScript.major = 1;
    localScript.minor = 3;
    useScripts();
    start();
    int major = 0;
    int minor = 0;
    gl.answer("glXQueryExtension", 17);
    EXPECT_EQ(kor_glXQueryExtension(app, &major, &minor), 17);
    EXPECT_EQ(kor_glXQueryVersion(app, &major, &minor), 1);
    EXPECT_EQ(major, 1);
    EXPECT_EQ(minor, 3);
    gl.answer("glXQueryVersion", 17);
    EXPECT_EQ(kor_glXQueryVersion(app, &major, &minor), 1);
    gl.fail("glXQueryVersion");
    EXPECT_EQ(kor_glXQueryVersion(app, &major, &minor), 0);
    kor_glXQueryVersion(nullptr, &major, &minor);
    EXPECT_EQ(gl.calls().back().text, "glXQueryVersion(null, out, out)");
    EXPECT_TRUE(said('D', "kor_glXQueryVersion", "Called with NULL display"));
}

TEST_F(GlxQueries, WithoutALocalDisplayVersionAndExtensionAreAskedAllTheSame) {
    set("KOR_GL_DISPLAY", ":4711");
    start();
    std::vector<std::vector<std::string>> held;
    gl.onCall("", [&](const fake::Call&) { held.push_back(heldLocks()); });
    int value = 0;
    kor_glXQueryVersion(app, &value, &value);
    kor_glXQueryExtension(app, &value, &value);
    gl.onCall("", nullptr);
    EXPECT_THAT(fake::texts(gl.calls()), ElementsAre("glXQueryVersion(null, out, out)",
                                                     "glXQueryExtension(null, out, out)"));
    EXPECT_THAT(held, ElementsAre(ElementsAre("local display"), ElementsAre("local display")));
}

TEST_F(GlxQueries, WithoutALocalDisplayTheClientHasOurVendorAndNothingElse) {
    set("KOR_GL_DISPLAY", ":4711");
    offer("GLX_SGIX_pbuffer");
    start();
    EXPECT_STREQ(kor_glXGetClientString(app, GLX_VENDOR), "TESSERA s.r.l.");
    EXPECT_EQ(kor_glXGetClientString(app, GLX_VERSION), nullptr);
    EXPECT_EQ(kor_glXGetClientString(app, GLX_EXTENSIONS), nullptr);
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(GlxQueries, EachTellsThatItWasCalledWithoutADisplay) {
    start();
    int value = 0;
    kor_glXQueryExtension(nullptr, &value, &value);
    EXPECT_EQ(gl.calls().back().text, "glXQueryExtension(null, out, out)");
    kor_glXGetClientString(nullptr, GLX_VERSION);
    EXPECT_EQ(gl.calls().back().text, format("glXGetClientString(null, %d)", GLX_VERSION));
    kor_glXQueryServerString(nullptr, 4, GLX_VERSION);
    for (const char* function :
         {"kor_glXQueryExtension", "kor_glXGetClientString", "kor_glXQueryServerString"})
        EXPECT_EQ(timesSaid('D', function, "Called with NULL display"), 1U) << function;
}

TEST_F(GlxQueries, TheyHoldTheLocalDisplayLockAlone) {
    offer("GLX_SGIX_pbuffer");
    start();
    std::vector<std::string> wrong;
    gl.onCall("", [&](const fake::Call& call) {
        if (heldLocks() != std::vector<std::string>{"local display"})
            wrong.push_back(call.text);
    });
    int value = 0;
    kor_glXQueryExtension(app, &value, &value);
    kor_glXQueryExtension(nullptr, &value, &value);
    kor_glXQueryVersion(app, &value, &value);
    kor_glXQueryExtensionsString(app, 0);
    kor_glXGetClientString(app, GLX_EXTENSIONS);
    kor_glXGetClientString(app, GLX_VERSION);
    kor_glXQueryServerString(app, 0, GLX_EXTENSIONS);
    gl.onCall("", nullptr);
    EXPECT_THAT(wrong, IsEmpty());
}

TEST_F(GlxQueries, EveryEntryPointIsFoundUnderItsName) {
    start();
#define KOR_ENTRY(name)                                                                            \
    EXPECT_EQ(reinterpret_cast<void*>(kor_glXGetProcAddress(procedure(#name))),                    \
              reinterpret_cast<void*>(&kor_##name))                                                \
        << #name;
#include "core/entry_points.def"
#undef KOR_ENTRY
    EXPECT_THAT(gl.calls(), IsEmpty());
    EXPECT_EQ(kor_glXGetProcAddressARB(procedure("glFlush")),
              kor_glXGetProcAddress(procedure("glFlush")));
}

TEST_F(GlxQueries, OtherGlFunctionsComeFromTheSystem) {
    start();
    gl.answer("glXGetProcAddress", 0x1230);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(kor_glXGetProcAddress(procedure("glGenBuffers"))),
              0x1230U);
    EXPECT_EQ(gl.calls().back().text, "glXGetProcAddress(\"glGenBuffers\")");
    EXPECT_TRUE(said('D', "kor_glXGetProcAddress", "procname: glGenBuffers"));
}

TEST_F(GlxQueries, OtherNamesAreNotFound) {
    start();
    for (const char* name : {"glXSwapIntervalSGI", "glXNothing", "eglInitialize", "g", ""}) {
        markLog();
        EXPECT_EQ(kor_glXGetProcAddress(procedure(name)), nullptr) << name;
        EXPECT_THAT(sayings("kor_glXGetProcAddress"),
                    ElementsAre(format("procname: %s", name), "failed"));
    }
    EXPECT_EQ(kor_glXGetProcAddress(procedure("glImportSyncEXT")), nullptr);
    EXPECT_TRUE(said('D', "kor_glXGetProcAddress", "blacklisted"));
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(GlxQueries, UnsupportedFunctionsGiveTheirFixedAnswers) {
    start();
    unsigned count = 7;
    GLuint groups = 7;
    GLuint barriers = 7;
    EXPECT_EQ(kor_glXGetContextIDEXT(nullptr), 0U);
    EXPECT_EQ(kor_glXBindChannelToWindowSGIX(app, 0, 0, 5), 0);
    EXPECT_EQ(kor_glXSendPbufferToVideoNV(app, 5, 0, nullptr, GL_FALSE), 0);
    EXPECT_EQ(kor_glXReleaseVideoImageNV(app, 5), 0);
    EXPECT_EQ(kor_glXSet3DfxModeMESA(1), 0);
    EXPECT_EQ(kor_glXGetRefreshRateSGI(&count), GLX_BAD_CONTEXT);
    EXPECT_EQ(kor_glXWaitVideoSyncSGI(1, 0, &count), GLX_BAD_CONTEXT);
    EXPECT_EQ(kor_glXGetVideoSyncSGI(&count), GLX_BAD_CONTEXT);
    EXPECT_EQ(count, 7U);
    EXPECT_EQ(kor_glXResetFrameCountNV(app, 0), 0);
    EXPECT_EQ(kor_glXQueryFrameCountNV(app, 0, &count), 0);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(kor_glXQueryMaxSwapGroupsNV(app, 0, &groups, &barriers), 1);
    EXPECT_EQ(groups, 0U);
    EXPECT_EQ(barriers, 0U);
    EXPECT_EQ(kor_glXQuerySwapGroupNV(app, 5, &groups, &barriers), 0);
    EXPECT_EQ(kor_glXBindSwapBarrierNV(app, 0, 0), 0);
    EXPECT_EQ(kor_glXJoinSwapGroupNV(app, 5, 0), 0);
    EXPECT_THAT(gl.calls(), IsEmpty());
    for (const LogLine& line : log())
        EXPECT_EQ(line.text().find("setting TSD"), std::string::npos); // none of them sets up
}

TEST_F(GlxQueries, SomeUnsupportedFunctionsSetTheDisplayUp) {
    const std::vector<std::function<void()>> calls = {
        [&] { EXPECT_EQ(kor_glXQueryContextInfoEXT(app, nullptr, 0, nullptr), 0); },
        [&] {
            EXPECT_EQ(kor_glXQueryChannelRectSGIX(app, 0, 0, nullptr, nullptr, nullptr, nullptr),
                      0);
        },
        [&] {
            EXPECT_EQ(kor_glXQueryChannelDeltasSGIX(app, 0, 0, nullptr, nullptr, nullptr, nullptr),
                      0);
        },
        [&] { EXPECT_EQ(kor_glXImportContextEXT(app, 5), nullptr); },
        [&] { EXPECT_EQ(kor_glXChannelRectSyncSGIX(app, 0, 0, 0), 0); },
        [&] { EXPECT_EQ(kor_glXChannelRectSGIX(app, 0, 0, 0, 0, 0, 0), 0); },
        [&] { kor_glXFreeContextEXT(app, nullptr); },
        [&] { kor_glXSelectEvent(app, 5, 1); },
        [&] { kor_glXSelectEventSGIX(app, 5, 1); },
    };
    start();
    for (const auto& call : calls) {
        Display* other = XOpenDisplay(appName.c_str());
        std::swap(app, other);
        markLog();
        call();
        // "setting" the first time, "switching" from then on
        EXPECT_THAT(sayings("_setupAppDisplay"), Not(IsEmpty()));
    }
    EXPECT_THAT(gl.calls(), IsEmpty());
}

TEST_F(GlxQueries, FreeContextStartsOnlyWhenTheDisplayCouldBeSetUp) {
    start();
    kor_glXFreeContextEXT(nullptr, nullptr);
    EXPECT_THAT(sayings("kor_glXFreeContextEXT"), IsEmpty());
    kor_glXFreeContextEXT(app, nullptr);
    EXPECT_THAT(sayings("kor_glXFreeContextEXT"), ElementsAre("START"));
}

TEST_F(GlxQueries, SelectedEventsAreNeitherStoredNorReported) {
    start();
    unsigned long mask = 7;
    kor_glXSelectEvent(app, 5, GLX_PBUFFER_CLOBBER_MASK);
    kor_glXGetSelectedEvent(app, 5, &mask);
    kor_glXGetSelectedEventSGIX(app, 5, &mask);
    EXPECT_EQ(mask, 7U);
}

TEST_F(GlxQueries, MemoryFunctionsAreForwarded) {
    start();
    gl.answer("glXAllocateMemoryNV", 0x4440);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(kor_glXAllocateMemoryNV(64, 1.0F, 0.5F, 0.25F)), 0x4440U);
    EXPECT_EQ(gl.calls().back().text, "glXAllocateMemoryNV(64, 1, 0.5, 0.25)");
    kor_glXFreeMemoryNV(reinterpret_cast<void*>(0x4440));
    EXPECT_EQ(gl.calls().back().text, "glXFreeMemoryNV(0x4440)");
}
