#ifndef KOR_BENCH_SUPPORT_COMPARISON_H
#define KOR_BENCH_SUPPORT_COMPARISON_H

#include <chrono>
#include <string>
#include <vector>

namespace kor::bench {

/// Microseconds on a clock that only goes forward.
double microseconds();
/// Microseconds that the calling thread has spent on a processor.
double threadMicroseconds();
/// The same for all threads of the process.
double processMicroseconds();

/// The middle value; 0 when there is none.
double median(std::vector<double> values);
double mean(const std::vector<double>& values);

/// Two sides measured by turns, one value of each per round, in microseconds.
class Comparison {
  public:
    /// name: what bench/run knows it by.
    explicit Comparison(std::string name) : m_name(std::move(name)) {}

    void add(double floor, double library);

    /// Prints one line of JSON: the sides' medians over the rounds and their ratio; the ratio of
    /// their tenths, which the load of a busy machine moves least; and the quarters of the rounds
    /// between which a round's own ratio lies.
    void print() const;

  private:
    std::string m_name;
    std::vector<double> m_floor;
    std::vector<double> m_library;
};

/// Ends the program with status 1 and the reason.
[[noreturn]] void fail(const std::string& reason);

/// The value of an environment variable; ends the program when it is not set.
std::string needVariable(const char* name);

/// "WxH"; ends the program when the text reads otherwise.
void parseSize(const std::string& text, int& width, int& height);

/// A whole number above 0; ends the program when the text reads otherwise.
int parseCount(const std::string& text);

} // namespace kor::bench

#endif
