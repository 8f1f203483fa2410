#ifndef KOR_ENTRY_PIXEL_CHANGES_H
#define KOR_ENTRY_PIXEL_CHANGES_H

/// Notes that the current context changes pixels in a way that a samples query does not count, so
/// that the next frame of its front buffer is transported whatever the query says.
void setNonRasterPixelChange();

#endif
