#ifndef KOR_SUPPORT_BUCKET_MAP_H
#define KOR_SUPPORT_BUCKET_MAP_H

#include <cstddef>
#include <cstdint>
#include <new>

namespace kor {

/// A hash table from a pointer to a Value: 128 buckets allocated once, never grown or rehashed; the
/// bucket of a key is its address modulo the bucket count. Each bucket is a circular doubly linked
/// chain behind a sentinel, new entries at its front. Asking creates nothing. When the buckets
/// cannot be allocated the table stays empty for good: every look-up fails. No lock of its own.
template <typename Key, typename Value> class BucketMap {
  public:
    static constexpr size_t bucketCount = 128;

    BucketMap() : buckets_(new (std::nothrow) Node[bucketCount]) {
        if (buckets_ == nullptr)
            return;
        for (size_t i = 0; i < bucketCount; ++i)
            buckets_[i].next = buckets_[i].previous = &buckets_[i];
    }
    ~BucketMap() {
        for (size_t i = 0; buckets_ != nullptr && i < bucketCount; ++i) {
            Node* node = buckets_[i].next;
            while (node != &buckets_[i]) {
                Node* const next = node->next;
                delete node;
                node = next;
            }
        }
        delete[] buckets_;
    }
    BucketMap(const BucketMap&) = delete;
    BucketMap& operator=(const BucketMap&) = delete;

    /// The value of key, or null. Valid until the entry is removed.
    Value* find(Key key) {
        Node* node = findNode(key);
        return node != nullptr ? &node->value : nullptr;
    }

    /// The value of key, made (as Value()) when there was none; null when no memory is left.
    Value* findOrInsert(Key key) {
        if (Value* value = find(key))
            return value;
        Node* node = buckets_ != nullptr ? new (std::nothrow) Node : nullptr;
        if (node == nullptr)
            return nullptr;
        Node* head = &buckets_[bucketOf(key)];
        node->key = key;
        node->previous = head;
        node->next = head->next;
        head->next->previous = node;
        head->next = node;
        ++count_;
        return &node->value;
    }

    bool remove(Key key) {
        Node* node = findNode(key);
        if (node == nullptr)
            return false;
        unlink(node);
        return true;
    }

    size_t count() const { return count_; }
    static size_t bucketOf(Key key) { return reinterpret_cast<uintptr_t>(key) % bucketCount; }

    /// Calls visit(key, value) for every entry until it returns true; tells whether one did.
    template <typename Visit> bool any(Visit visit) const {
        for (size_t i = 0; buckets_ != nullptr && i < bucketCount; ++i) {
            for (Node* node = buckets_[i].next; node != &buckets_[i]; node = node->next) {
                if (visit(node->key, node->value))
                    return true;
            }
        }
        return false;
    }

  private:
    struct Node {
        Key key = Key();
        Value value = Value();
        Node* next = nullptr;
        Node* previous = nullptr;
    };

    Node* findNode(Key key) const {
        if (buckets_ == nullptr)
            return nullptr;
        Node* head = &buckets_[bucketOf(key)];
        for (Node* node = head->next; node != head; node = node->next) {
            if (node->key == key)
                return node;
        }
        return nullptr;
    }
    void unlink(Node* node) {
        node->previous->next = node->next;
        node->next->previous = node->previous;
        delete node;
        --count_;
    }

    Node* buckets_;
    size_t count_ = 0;
};

} // namespace kor

#endif
