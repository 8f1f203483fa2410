#ifndef KOR_TESTS_FAKES_STATE_H
#define KOR_TESTS_FAKES_STATE_H

#include "fake_gl.h"

#include <condition_variable>
#include <mutex>
#include <set>

namespace fake {

/// What the fake knows of the calling thread.
struct ThreadState {
    GLXContext context = nullptr;
    GLXDrawable draw = None;
    GLXDrawable read = None;
    Display* display = nullptr;
    std::map<GLenum, GLint> pixelStore;
    std::vector<std::map<GLenum, GLint>> savedPixelStores;
};
ThreadState& threadState();

/// The fake's state; one per process. The mutex guards all of it and is never held while a handler
/// runs.
class State final : public Gl {
  public:
    static State& instance();

    void reset() override;
    std::vector<Call> calls() const override;
    std::vector<Call> callsOf(const std::string& name) const override;
    void clearCalls() override;
    bool waitForCalls(const std::string& name, size_t count, int milliseconds) const override;
    void lack(const std::string& name) override;
    void fail(const std::string& name) override;
    void failCall(const std::string& name, int n) override;
    void succeed(const std::string& name) override;
    void answer(const std::string& name, Word result) override;
    void onCall(const std::string& name, std::function<void(const Call&)> handler) override;
    void setDisplay(const std::string& displayString, const DisplayScript& script) override;
    DisplayScript display(const std::string& displayString) const override;
    void setInteger(GLenum name, GLint value) override;
    void forgetInteger(GLenum name) override;
    void setQueryResult(GLint samples) override;
    void forgetQueryResult() override;
    void setPixels(std::function<uint32_t(int x, int y)> pixel) override;
    void nameDisplay(const std::string& displayString, const std::string& name) override;
    void name(Word value, const std::string& name) override;
    std::string nameOf(Word value) const override;

    /// What becomes of a call once it is recorded.
    struct Outcome {
        bool replaced = false; ///< result stands, without the function's usual effect
        Word result = 0;
    };
    Outcome record(Call call);

    bool lacks(const std::string& name) const;
    std::string displayName(Display* display) const;
    /// The script of that display; an empty one where none was given.
    DisplayScript script(Display* display) const;
    /// The integer that glGetIntegerv writes; false where it writes none.
    bool integer(GLenum name, GLint* value) const;
    bool queryResult(GLint* samples) const;
    std::function<uint32_t(int x, int y)> pixels() const;
    /// A fresh handle or id, named kind1, kind2...
    Word fresh(const std::string& kind, Word base);
    /// A fresh GL object name; the kinds have ranges of their own.
    GLuint freshObject(const std::string& kind);
    const char* keep(const std::string& text);

  private:
    State();
    void setDefaults();

    mutable std::mutex mutex_;
    mutable std::condition_variable recorded_;
    std::vector<Call> calls_;
    std::set<std::string> lacking_;
    std::set<std::string> failing_;
    std::map<std::string, std::set<int>> failingCalls_;
    std::map<std::string, int> counts_;
    std::map<std::string, Word> answers_;
    std::map<std::string, std::function<void(const Call&)>> handlers_;
    std::map<std::string, DisplayScript> displays_;
    std::map<GLenum, GLint> integers_;
    bool hasQueryResult_ = true;
    GLint queryResult_ = 0;
    std::function<uint32_t(int x, int y)> pixels_;
    std::map<std::string, std::string> displayNames_;
    std::map<Word, std::string> names_;
    std::map<std::string, int> freshCounts_;
    std::set<std::string> kept_;
};

} // namespace fake

#endif
