// Shared memory between a program and the session's server.
#include "doctor_fixture.h"

using namespace kor::test;
using testing::HasSubstr;

TEST_F(SessionTest, AnotherIpcNamespaceIsNoticed) {
    const Diagnosis found = diagnoseSession({}, {}, inOwnNamespace("--ipc"));
    EXPECT_EQ(found.exitStatus, 2);
    EXPECT_THAT(found["shared-memory"], HasStatus("broken"));
    EXPECT_THAT(found["shared-memory"].result, HasSubstr("cannot attach our segment"));
    EXPECT_THAT(found["shared-memory"].advice, HasSubstr("IPC namespace"));
    EXPECT_THAT(found["painting"], HasStatus("broken"));
    EXPECT_THAT(found["painting"].result, HasSubstr("shared memory"));
    EXPECT_THAT(found["frame-rate"], HasStatus("skipped"));
}

TEST_F(SessionTest, LackOfSharedMemoryWeighsAsTheStrategySays) {
    const std::vector<std::string> elsewhere = inOwnNamespace("--ipc");
    const Diagnosis detect = diagnoseSession({{"KOR_GL_COPYBACK_STRATEGY", "0"}}, {}, elsewhere);
    EXPECT_THAT(detect["shared-memory"], HasStatus("warning"));
    EXPECT_THAT(detect["shared-memory"].result, HasSubstr("slow way"));
    EXPECT_THAT(detect["painting"], HasStatus("ok"));
    EXPECT_THAT(detect["painting"].result, HasSubstr("plain image requests"));
    const Diagnosis plain = diagnoseSession({{"KOR_GL_COPYBACK_STRATEGY", "2"}}, {}, elsewhere);
    EXPECT_THAT(plain["shared-memory"], HasStatus("ok"));
    EXPECT_THAT(plain["shared-memory"].result, HasSubstr("not needed"));
}

TEST_F(SessionTest, ServerWithoutTheExtensionIsNoticed) {
    const XServer without = startLocal({"-extension", "MIT-SHM"});
    const Diagnosis found = diagnoseSession({{"DISPLAY", without.name()}});
    EXPECT_THAT(found["shared-memory"], HasStatus("broken"));
    EXPECT_THAT(found["shared-memory"].result, HasSubstr("no MIT-SHM"));
}

TEST_F(SessionTest, LimitOfSegmentsIsNoticed) {
    std::vector<std::string> before = inOwnNamespace("--ipc");
    before.insert(before.end(),
                  {"sh", "-c", "echo 4096 > /proc/sys/kernel/shmmax && exec \"$@\"", "sh"});
    const Diagnosis found = diagnoseSession({}, {}, before);
    EXPECT_THAT(found["shared-memory"], HasStatus("broken"));
    EXPECT_THAT(found["shared-memory"].result, HasSubstr("no segment of 1 MiB"));
    EXPECT_THAT(found["shared-memory"].advice, HasSubstr("kernel.shmmax"));
}

TEST_F(SessionTest, SmallFolderOfSharedMemoryIsNoticed) {
    std::vector<std::string> before = inOwnNamespace("--mount");
    before.insert(before.end(),
                  {"sh", "-c", "mount -t tmpfs -o size=64k none /dev/shm && exec \"$@\"", "sh"});
    const Diagnosis found = diagnoseSession({}, {}, before);
    EXPECT_THAT(found["shared-memory"], HasStatus("warning"));
    EXPECT_THAT(found["shared-memory"].result, HasSubstr("/dev/shm has only 1 MiB left"));
    EXPECT_THAT(found["shared-memory"].advice, HasSubstr("--shm-size"));
}
