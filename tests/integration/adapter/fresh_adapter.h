#ifndef KOR_TESTS_ADAPTER_FRESH_ADAPTER_H
#define KOR_TESTS_ADAPTER_FRESH_ADAPTER_H

#include <string>

namespace kor::test {

/// A copy of the adapter that nobody has initialised, opened from a folder of its own: as good as a
/// new process. The folder is gone with the object; what was opened stays open.
class FreshAdapter {
  public:
    FreshAdapter();
    ~FreshAdapter();
    FreshAdapter(const FreshAdapter&) = delete;
    FreshAdapter& operator=(const FreshAdapter&) = delete;

    void* handle() const { return handle_; }
    void* find(const char* name) const;
    template <typename Function> Function* find(const char* name) const {
        return reinterpret_cast<Function*>(find(name));
    }
    bool init(void* systemHandle) const;
    /// Copies a library into the adapter's own folder and opens it there.
    void* openBeside(const std::string& library) const;
    /// The same, into another folder.
    void* openElsewhere(const std::string& library) const;

  private:
    static void* openCopy(const std::string& library, const std::string& folder);

    std::string folder_;
    void* handle_ = nullptr;
};

/// Opens a library; ends the test program when there is none.
void* openLibrary(const std::string& path);

} // namespace kor::test

#endif
