#ifndef KOR_SUPPORT_INI_TABLE_H
#define KOR_SUPPORT_INI_TABLE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kor {

/// The entries of one INI file, by key ("SECTION::NAME", in capitals). Keeps no order. A value
/// stays where it is in memory until it is replaced or removed. May throw std::bad_alloc where it
/// adds.
class IniTable {
  public:
    struct Entry {
        std::string key;
        std::string value;
    };

    IniTable() : buckets_(initialBuckets) {}

    static uint32_t hash(const std::string& key);

    Entry* find(const std::string& key);
    void add(const std::string& key, const char* value);
    /// True when there was such an entry.
    bool remove(const std::string& key);
    void clear();
    size_t size() const { return count_; }
    size_t bucketCount() const { return buckets_.size(); }

    template <typename Visitor> void forEach(Visitor visit) const {
        for (const Bucket& bucket : buckets_) {
            for (const auto& entry : bucket)
                visit(*entry);
        }
    }

  private:
    using Bucket = std::vector<std::unique_ptr<Entry>>;
    static constexpr size_t initialBuckets = 128;

    Bucket& bucketOf(const std::string& key) { return buckets_[hash(key) % buckets_.size()]; }
    void grow();

    std::vector<Bucket> buckets_;
    size_t count_ = 0;
};

} // namespace kor

#endif
