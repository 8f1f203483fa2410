#include "support/ini_table.h"

#include <algorithm>

namespace kor {

uint32_t IniTable::hash(const std::string& key) {
    uint32_t h = 0;
    for (const char c : key) {
        h = 16 * h + 13 * uint32_t{static_cast<unsigned char>(c)};
        const uint32_t top = h & 0xf0000000U;
        if (top != 0)
            h ^= top >> 24;
        h &= ~top;
    }
    return h;
}

IniTable::Entry* IniTable::find(const std::string& key) {
    for (const auto& entry : bucketOf(key)) {
        if (entry->key == key)
            return entry.get();
    }
    return nullptr;
}

void IniTable::add(const std::string& key, const char* value) {
    auto entry = std::make_unique<Entry>(Entry{key, value});
    if (count_ >= 2 * buckets_.size())
        grow();
    bucketOf(key).push_back(std::move(entry));
    ++count_;
}

bool IniTable::remove(const std::string& key) {
    const size_t removed =
        std::erase_if(bucketOf(key), [&](const auto& entry) { return entry->key == key; });
    count_ -= removed;
    return removed != 0;
}

void IniTable::clear() {
    for (Bucket& bucket : buckets_)
        bucket.clear();
    count_ = 0;
}

void IniTable::grow() {
    std::vector<Bucket> larger(2 * buckets_.size());
    for (Bucket& bucket : buckets_) {
        for (auto& entry : bucket)
            larger[hash(entry->key) % larger.size()].push_back(std::move(entry));
    }
    buckets_ = std::move(larger);
}

} // namespace kor
