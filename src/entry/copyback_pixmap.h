#ifndef KOR_ENTRY_COPYBACK_PIXMAP_H
#define KOR_ENTRY_COPYBACK_PIXMAP_H

#include "drawable/drawable_info.h"

/// Copies a local pixmap to the application's, at once and over the application's own connection.
/// Skipped without a word when the image cannot be had.
void copybackPixmap(kor::gl::DrawableInfo& record);

#endif
