#include "support/comparison.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <numeric>

namespace kor::bench {

namespace {

double read(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double quantile(std::vector<double> values, double share) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(std::lround(share * static_cast<double>(values.size() - 1)))];
}

} // namespace

double microseconds() {
    return read(CLOCK_MONOTONIC);
}

double threadMicroseconds() {
    return read(CLOCK_THREAD_CPUTIME_ID);
}

double processMicroseconds() {
    return read(CLOCK_PROCESS_CPUTIME_ID);
}

double median(std::vector<double> values) {
    return quantile(std::move(values), 0.5);
}

double mean(const std::vector<double>& values) {
    return values.empty() ? 0
                          : std::accumulate(values.begin(), values.end(), 0.0) /
                                static_cast<double>(values.size());
}

void Comparison::add(double floor, double library) {
    m_floor.push_back(floor);
    m_library.push_back(library);
}

void Comparison::print() const {
    std::vector<double> ratios(m_floor.size());
    std::transform(m_library.begin(), m_library.end(), m_floor.begin(), ratios.begin(),
                   [](double library, double floor) { return library / floor; });
    printf("{\"name\": \"%s\", \"rounds\": %zu, \"floor_us\": %.3f, \"library_us\": %.3f, "
           "\"ratio\": %.4f, \"quiet_ratio\": %.4f, \"low\": %.4f, \"high\": %.4f}\n",
           m_name.c_str(), ratios.size(), median(m_floor), median(m_library),
           median(m_library) / median(m_floor), quantile(m_library, 0.1) / quantile(m_floor, 0.1),
           quantile(ratios, 0.25), quantile(ratios, 0.75));
    fflush(stdout);
}

void fail(const std::string& reason) {
    fprintf(stderr, "bench: %s\n", reason.c_str());
    exit(1);
}

std::string needVariable(const char* name) {
    const char* value = getenv(name);
    if (value == nullptr || *value == '\0')
        fail(std::string(name) + " is not set; start the measurements through bench/run");
    return value;
}

void parseSize(const std::string& text, int& width, int& height) {
    char rest = 0;
    if (sscanf(text.c_str(), "%dx%d%c", &width, &height, &rest) != 2 || width < 1 || height < 1)
        fail("'" + text + "' is no size like 640x480");
}

int parseCount(const std::string& text) {
    int count = 0;
    char rest = 0;
    if (sscanf(text.c_str(), "%d%c", &count, &rest) != 1 || count < 1)
        fail("'" + text + "' is no number above 0");
    return count;
}

} // namespace kor::bench
