#include "request_stream.h"

#include <algorithm>
#include <cstring>

namespace kor::adapter {
namespace {

template <typename Word> Word wordAt(const char* bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

} // namespace

bool RequestStream::step(const char*& data, std::size_t& size) {
    if (skip_ > 0) {
        const std::size_t passed = std::min(skip_, size);
        data += passed;
        size -= passed;
        skip_ -= passed;
        return false;
    }
    bytes_.at(headSize_++) = *data++;
    size--;
    if (headSize_ < 4)
        return false;

    const std::size_t shortLength = wordAt<std::uint16_t>(bytes_.data() + 2) * std::size_t{4};
    if (shortLength == 0 && headSize_ < 8)
        return false;                              // the long length follows
    const std::size_t start = shortLength ? 4 : 8; // of the first word after the length
    const std::size_t length = std::max(
        shortLength ? shortLength : wordAt<std::uint32_t>(bytes_.data() + 4) * std::size_t{4},
        start);
    const bool hasWord = length >= start + 4;
    if (hasWord && headSize_ < start + 4)
        return false;

    head_.major = static_cast<std::uint8_t>(bytes_[0]);
    head_.minor = static_cast<std::uint8_t>(bytes_[1]);
    head_.resource = hasWord ? wordAt<std::uint32_t>(bytes_.data() + start) : 0;
    skip_ = length - headSize_;
    headSize_ = 0;
    return true;
}

std::size_t RequestStream::countBegun(const char* data, std::size_t size) const {
    RequestStream ahead = *this;
    std::size_t begun = 0;
    while (size > 0) {
        if (ahead.headSize_ == 0 && ahead.skip_ == 0)
            begun++;
        ahead.step(data, size);
    }
    return begun;
}

} // namespace kor::adapter
