#ifndef KOR_SUPPORT_WHERE_INFO_H
#define KOR_SUPPORT_WHERE_INFO_H

/// The call site of a lock, unlock, wait or post. The operations accept it and ignore it: it has no
/// fields in this library, and is the place where a debugging build can add some.
struct korWhereInfo {};

#endif
