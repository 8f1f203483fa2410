#include "state.h"

#include <chrono>

namespace fake {

ThreadState& threadState() {
    thread_local ThreadState state;
    return state;
}

State& State::instance() {
    // Never destroyed: threads of the library under test may outlive static destruction.
    static State* const state = new State;
    return *state;
}

State::State() {
    setDefaults();
}

void State::setDefaults() {
    integers_ = {
        {GL_RENDER_MODE, GL_RENDER}, {GL_DRAW_BUFFER, GL_BACK}, {GL_FRAMEBUFFER_BINDING, 0}};
    hasQueryResult_ = true;
    queryResult_ = 0;
    pixels_ = [](int x, int y) { return static_cast<uint32_t>((y * 131 + x * 7) & 0xffffff); };
}

void State::reset() {
    const std::lock_guard lock(mutex_);
    calls_.clear();
    lacking_.clear();
    failing_.clear();
    failingCalls_.clear();
    counts_.clear();
    answers_.clear();
    handlers_.clear();
    displays_.clear();
    displayNames_.clear();
    names_.clear();
    setDefaults();
}

std::vector<Call> State::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

std::vector<Call> State::callsOf(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    std::vector<Call> result;
    for (const Call& call : calls_)
        if (call.name == name)
            result.push_back(call);
    return result;
}

void State::clearCalls() {
    const std::lock_guard lock(mutex_);
    calls_.clear();
}

bool State::waitForCalls(const std::string& name, size_t count, int milliseconds) const {
    std::unique_lock lock(mutex_);
    return recorded_.wait_for(lock, std::chrono::milliseconds(milliseconds), [&] {
        size_t found = 0;
        for (const Call& call : calls_)
            found += call.name == name ? 1 : 0;
        return found >= count;
    });
}

void State::lack(const std::string& name) {
    const std::lock_guard lock(mutex_);
    lacking_.insert(name);
}

bool State::lacks(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    return lacking_.count(name) != 0;
}

void State::fail(const std::string& name) {
    const std::lock_guard lock(mutex_);
    failing_.insert(name);
}

void State::failCall(const std::string& name, int n) {
    const std::lock_guard lock(mutex_);
    failingCalls_[name].insert(counts_[name] + n);
}

void State::succeed(const std::string& name) {
    const std::lock_guard lock(mutex_);
    failing_.erase(name);
    failingCalls_.erase(name);
    answers_.erase(name);
}

void State::answer(const std::string& name, Word result) {
    const std::lock_guard lock(mutex_);
    answers_[name] = result;
}

void State::onCall(const std::string& name, std::function<void(const Call&)> handler) {
    const std::lock_guard lock(mutex_);
    handlers_[name] = std::move(handler);
}

State::Outcome State::record(Call call) {
    std::vector<std::function<void(const Call&)>> handlers;
    Outcome outcome;
    {
        const std::lock_guard lock(mutex_);
        const int number = ++counts_[call.name];
        calls_.push_back(call);
        for (const std::string& key : {std::string(), call.name})
            if (const auto found = handlers_.find(key); found != handlers_.end() && found->second)
                handlers.push_back(found->second);
        const auto failing = failingCalls_.find(call.name);
        outcome.replaced = failing_.count(call.name) != 0 ||
                           (failing != failingCalls_.end() && failing->second.count(number) != 0);
        if (const auto found = answers_.find(call.name);
            !outcome.replaced && found != answers_.end())
            outcome = {true, found->second};
    }
    recorded_.notify_all();
    for (const auto& handler : handlers)
        handler(call);
    return outcome;
}

void State::setDisplay(const std::string& displayString, const DisplayScript& script) {
    const std::lock_guard lock(mutex_);
    displays_[displayString] = script;
}

DisplayScript State::display(const std::string& displayString) const {
    const std::lock_guard lock(mutex_);
    const auto found = displays_.find(displayString);
    return found == displays_.end() ? DisplayScript{} : found->second;
}

DisplayScript State::script(Display* display) const {
    return this->display(display == nullptr ? "" : XDisplayString(display));
}

void State::setInteger(GLenum name, GLint value) {
    const std::lock_guard lock(mutex_);
    integers_[name] = value;
}

void State::forgetInteger(GLenum name) {
    const std::lock_guard lock(mutex_);
    integers_.erase(name);
}

bool State::integer(GLenum name, GLint* value) const {
    const std::lock_guard lock(mutex_);
    const auto found = integers_.find(name);
    if (found == integers_.end())
        return false;
    *value = found->second;
    return true;
}

void State::setQueryResult(GLint samples) {
    const std::lock_guard lock(mutex_);
    hasQueryResult_ = true;
    queryResult_ = samples;
}

void State::forgetQueryResult() {
    const std::lock_guard lock(mutex_);
    hasQueryResult_ = false;
}

bool State::queryResult(GLint* samples) const {
    const std::lock_guard lock(mutex_);
    if (hasQueryResult_)
        *samples = queryResult_;
    return hasQueryResult_;
}

void State::setPixels(std::function<uint32_t(int x, int y)> pixel) {
    const std::lock_guard lock(mutex_);
    pixels_ = std::move(pixel);
}

std::function<uint32_t(int x, int y)> State::pixels() const {
    const std::lock_guard lock(mutex_);
    return pixels_;
}

void State::nameDisplay(const std::string& displayString, const std::string& name) {
    const std::lock_guard lock(mutex_);
    displayNames_[displayString] = name;
}

std::string State::displayName(Display* display) const {
    if (display == nullptr)
        return "null";
    const std::lock_guard lock(mutex_);
    const std::string text = XDisplayString(display);
    const auto found = displayNames_.find(text);
    return found == displayNames_.end() ? text : found->second;
}

void State::name(Word value, const std::string& name) {
    const std::lock_guard lock(mutex_);
    names_[value] = name;
}

std::string State::nameOf(Word value) const {
    const std::lock_guard lock(mutex_);
    const auto found = names_.find(value);
    return found == names_.end() ? std::string() : found->second;
}

Word State::fresh(const std::string& kind, Word base) {
    const std::lock_guard lock(mutex_);
    const int number = ++freshCounts_[kind];
    const Word value = base + static_cast<Word>(number) * 16;
    names_[value] = kind + std::to_string(number);
    return value;
}

GLuint State::freshObject(const std::string& kind) {
    static const std::map<std::string, GLuint> bases = {
        {"texture", 10}, {"framebuffer", 40}, {"program", 70}, {"shader", 100},
        {"query", 130},  {"buffer", 160},     {"array", 190}};
    const std::lock_guard lock(mutex_);
    return bases.at(kind) + static_cast<GLuint>(++freshCounts_[kind]);
}

const char* State::keep(const std::string& text) {
    const std::lock_guard lock(mutex_);
    return kept_.insert(text).first->c_str();
}

} // namespace fake

/// Found by fake::controls() with dlsym.
extern "C" __attribute__((visibility("default"))) fake::Gl* fake_gl_controls() {
    return &fake::State::instance();
}
