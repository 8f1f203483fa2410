#include "transport/readback_context.h"

#include "core/process_end.h"
#include "core/system_gl.h"
#include "display/local_call.h"
#include "support/failures.h"
#include "support/log.h"
#include "transport/readback_slice.h"
#include "transport/slice_grid.h"
#include "transport/ximage_painter.h"

#include <algorithm>

namespace kor::gl {

ReadbackContext::ReadbackContext() : done_(0), work_(0) {}

ReadbackContext::~ReadbackContext() {
    if (context_ == nullptr)
        return;
    {
        const Lock lock(exitLock_);
        exitFlag_ = true;
    }
    work_.V(korWhereInfo{});
    thread_.join();
}

void ReadbackContext::ref() {
    refCount_.fetch_add(1);
}

void ReadbackContext::unref() {
    if (refCount_.load() == 0) {
        KOR_DEBUG("%p refcount is already 0", static_cast<void*>(this));
        return;
    }
    if (refCount_.fetch_sub(1) == 1)
        delete this;
}

bool ReadbackContext::setSharedContext(const LocalDisplay& local, GLXFBConfig fbconfig,
                                       GLXContext share, GLXDrawable drawable) {
    local_ = local;
    drawable_ = drawable;
    context_ = system_glXCreateNewContext(local.get(), fbconfig, GLX_RGBA_TYPE, share, True);
    if (context_ == nullptr)
        return false;
    if (!thread_.started())
        thread_.start(this, callback);
    return true;
}

void ReadbackContext::layGrid(int width, int height) {
    const SliceGrid grid(width, height);
    if (grid.columns * grid.rows != static_cast<int>(slices_.size())) {
        std::vector<std::unique_ptr<ReadbackSlice>> slices;
        slices.reserve(static_cast<size_t>(grid.columns) * static_cast<size_t>(grid.rows));
        for (int i = 0; i < grid.columns * grid.rows; ++i)
            slices.push_back(std::make_unique<ReadbackSlice>());
        slices_ = std::move(slices);
    }
    columns_ = grid.columns;
    rows_ = grid.rows;
    width_ = 0;
    height_ = 0;
    for (int r = 0; r < rows_; ++r) {
        for (int c = 0; c < columns_; ++c) {
            ReadbackSlice& slice = *slices_[static_cast<size_t>(r) * static_cast<size_t>(columns_) +
                                            static_cast<size_t>(c)];
            const SliceGrid::Cell cell = grid.cell(c, r);
            slice.x = cell.x;
            slice.y = cell.y;
            slice.width = cell.width;
            slice.height = cell.height;
            slice.performGPUReadback(width, height);
            width_ = std::max(width_, slice.x + slice.textureWidth());
            height_ = std::max(height_, slice.y + slice.textureHeight());
        }
    }
}

bool ReadbackContext::performGPUReadback(int width, int height) {
    // An empty window is not visible and never comes here; an empty grid would divide by zero.
    if (context_ == nullptr || width < 1 || height < 1)
        return false;
    const Lock lock(copyLock_);
    layGrid(width, height);
    if (fence_ != nullptr)
        system_glDeleteSync(fence_);
    fence_ = system_glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
    system_glBindTexture(GL_TEXTURE_RECTANGLE, 0);
    system_glFlush(); // so that the fence reaches the GPU
    statistics_->rendered(framePending_);
    framePending_ = true;
    return true;
}

void ReadbackContext::copyToAppDisplay(Display* display, XImagePainter* painter, VisualID visual) {
    if (context_ == nullptr || !thread_.started())
        return;
    const Lock lock(copyLock_);
    if (!framePending_ || !painter->setup(display, visual, width_, height_))
        return;
    if (painter->getBuffer() == nullptr)
        return; // no image could be made; the next pass tries again
    if (destinationBuffer_ != nullptr) {
        destinationBuffer_ = nullptr;
        KOR_WARNING("Query buffer non-emptied - possible severe corruption ongoing");
    }
    transferWidth_ = width_;
    transferHeight_ = height_;
    destinationBuffer_ = painter->getBuffer();
    statistics_->begins(painter->window());
    work_.V(korWhereInfo{});
    done_.P(korWhereInfo{});
    statistics_->transferred();
    if (transferSucceeded_ && painter->canDraw()) {
        painter->draw(display, width_, height_);
        statistics_->painted(width_, height_, painter->usesSharedMemory());
    } else {
        statistics_->failed();
    }
    destinationBuffer_ = nullptr;
    framePending_ = false;
}

bool ReadbackContext::checkExit() {
    const Lock lock(exitLock_);
    return exitFlag_;
}

bool ReadbackContext::callback(ReadbackContext* self) {
    self->svc();
    return true;
}

/// Waits for the GPU and reads every slice; stops at the first that fails.
bool ReadbackContext::transfer() {
    const OwnRendering rendering;
    if (!rendering.allowed())
        return false;
    if (fence_ != nullptr) {
        system_glClientWaitSync(fence_, GL_SYNC_FLUSH_COMMANDS_BIT, GL_TIMEOUT_IGNORED);
        system_glDeleteSync(fence_);
        fence_ = nullptr;
    }
    const bool succeeded = std::all_of(slices_.begin(), slices_.end(), [&](const auto& slice) {
        return slice->transferToSystemMemory(destinationBuffer_, transferWidth_, transferHeight_);
    });
    system_glBindFramebuffer(GL_FRAMEBUFFER, 0);
    return succeeded;
}

/// The copyback thread waits for the answer: a transfer that throws has failed.
bool ReadbackContext::tryTransfer() try { return transfer(); }
KOR_OTHERWISE(false)

void ReadbackContext::makeWorkerCurrent() try {
    callLocal(system_glXMakeCurrent, local_.get(), drawable_, context_);
}
KOR_OTHERWISE()

void ReadbackContext::svc() {
    makeWorkerCurrent();
    KOR_DEBUG("Making readback context current for drawable 0x%x",
              static_cast<unsigned>(drawable_));
    while (!checkExit()) {
        work_.P(korWhereInfo{});
        if (checkExit())
            break;
        // The copyback thread waits, with locks that an error handler's calls may want.
        const Undisturbed undisturbed;
        transferSucceeded_ = tryTransfer();
        done_.V(korWhereInfo{});
    }
    slices_.clear();
    callLocal(system_glXMakeCurrent, local_.get(), GLXDrawable{None}, GLXContext{nullptr});
    callLocal(system_glXDestroyContext, local_.get(), context_);
}

} // namespace kor::gl
