#ifndef KOR_ADAPTER_REQUEST_STREAM_H
#define KOR_ADAPTER_REQUEST_STREAM_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace kor::adapter {

/// The first words of one X request, in the client's own byte order.
struct RequestHead {
    std::uint8_t major = 0;
    std::uint8_t minor = 0;     // of an extension's request; a core request has data here
    std::uint32_t resource = 0; // the first word after the length; 0 when there is none
    /// How many requests of the same piece began after this one.
    std::size_t later = 0;
};

/// Cuts a connection's output, given in pieces of any size, into requests. Pure bookkeeping: no
/// byte is kept but those of a head that is not complete yet.
class RequestStream {
  public:
    /// Reads one piece and calls handle(head) for each request whose head is complete with it.
    template <typename Handle> void read(const char* data, std::size_t size, Handle&& handle) {
        std::size_t begun = countBegun(data, size);
        while (size > 0) {
            if (headSize_ == 0 && skip_ == 0)
                begun--;
            if (step(data, size)) {
                head_.later = begun;
                handle(static_cast<const RequestHead&>(head_));
            }
        }
    }

  private:
    /// Takes what belongs together off the piece; true when a head has become complete.
    bool step(const char*& data, std::size_t& size);
    /// How many requests begin in the piece; changes nothing.
    std::size_t countBegun(const char* data, std::size_t size) const;

    std::array<char, 12> bytes_{}; // opcode, data, length, long length if any, first word
    std::size_t headSize_ = 0;     // bytes of the head that are there
    std::size_t skip_ = 0;         // bytes of the request that are still to pass
    RequestHead head_;
};

} // namespace kor::adapter

#endif
