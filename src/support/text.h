#ifndef KOR_SUPPORT_TEXT_H
#define KOR_SUPPORT_TEXT_H

/// Copies src into dst of size bytes. 0, or EINVAL (a null pointer) or ERANGE (does not fit;
/// nothing is copied).
int korStrcpy(char* dst, unsigned size, const char* src);

/// The text after the last "/", or the whole text: a pointer into path.
const char* korBasename(const char* path);

/// Splits text at any of delimiters into at most maxParts heap copies (the caller frees each).
/// Returns how many entries were stored; a text of delimiters only stores one null entry, and users
/// rely on that count.
int korStrsplit(const char* text, char** parts, unsigned maxParts, const char* delimiters);

/// Joins the non-empty components with "/" into a heap copy (the caller frees it); the list ends
/// with a null pointer. Null when the text with
/// its separators, also the last one's, exceeds 4095 characters.
char* korBuildFilename(const char* first, ...) __attribute__((sentinel));

/// True when name occurs as a whole word in the space-separated list. False when either is null or
/// name is empty or holds a space. After a rejected hit the search goes on just behind it, and a
/// hit that begins exactly there counts without a preceding space.
bool matchExtension(const char* list, const char* name);

#endif
