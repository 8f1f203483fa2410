#ifndef KOR_SUPPORT_EXPORT_H
#define KOR_SUPPORT_EXPORT_H

/// Marks what leaves the library. Everything else is hidden; the marked names are reviewed in
/// tests/unit/core/exported_symbols.txt, which a test compares with the built library.
#define KOR_EXPORT __attribute__((visibility("default")))

#endif
