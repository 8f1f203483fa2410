// What the support classes do when no memory is left. This program's operator new can be made to
// fail, that of the C++ library included.

#include "../temporary_directory.h"
#include "support/ini_file.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

namespace {

thread_local bool memoryIsOut = false;

class MemoryIsOut {
  public:
    MemoryIsOut() { memoryIsOut = true; }
    ~MemoryIsOut() { memoryIsOut = false; }
    MemoryIsOut(const MemoryIsOut&) = delete;
    MemoryIsOut& operator=(const MemoryIsOut&) = delete;
};

} // namespace

void* operator new(size_t size) {
    void* memory = memoryIsOut ? nullptr : malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    free(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept {
    free(memory);
}

TEST(IniFileWithoutMemory, RefusesANewValueAndKeepsTheOthers) {
    const kor::test::TemporaryDirectory directory;
    kor::IniFile file(directory.write("f.ini", "[section]\nold = 1\n").c_str(), true);
    bool set = true;
    {
        const MemoryIsOut memory;
        set = file.setValue("section", "a name of more than sixteen letters", "value", false);
    }
    EXPECT_FALSE(set);
    EXPECT_STREQ(file.getValue("section", "old"), "1");
    EXPECT_EQ(file.getValue("section", "a name of more than sixteen letters"), nullptr);
}
