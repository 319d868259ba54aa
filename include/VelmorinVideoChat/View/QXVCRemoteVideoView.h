// QXVCRemoteVideoView: the surface that shows the other side's video.
//
// The call adds the view as a renderer of the remote video track and makes
// itself the view's delegate. Frames arrive on the engine's media thread; the
// view keeps the latest one, counts them, and tells its one delegate when the
// size of the video changes (never for a frame of the same size). Every method
// is thread-safe.
//
// On Linux the view does not draw by itself: the application reads the latest
// frame (or writes it out as a PNG file) and shows it with the toolkit it uses.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "VelmorinVideoChat/Platform/RTC/RTCTypes.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoFrame.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoRenderer.h"
#include "VelmorinVideoChat/Platform/RTC/RTCVideoViewDelegate.h"

class QXVCRemoteVideoView : public RTCVideoRenderer,
                            public std::enable_shared_from_this<QXVCRemoteVideoView> {
  public:
    /// A new view: no frame, size 0 x 0, content mode 0, no delegate.
    static std::shared_ptr<QXVCRemoteVideoView> create();
    ~QXVCRemoteVideoView() override = default;

    // ---- RTCVideoRenderer ---------------------------------------------------

    /// The engine's announcement of the coming frames' size. Reported to the
    /// delegate when it differs from the size last reported.
    void setSize(CGSize size) override;
    /// Keeps `frame` as the latest and counts it. A frame whose displayed size
    /// (rotation applied) differs from the current size is reported like
    /// setSize, so sizes are right even with an engine that never calls it.
    /// A null frame is ignored.
    void renderFrame(const RTCVideoFramePtr& frame) override;

    // ---- Delegate -----------------------------------------------------------

    /// The one delegate, held weakly; nullptr removes it. Called on the thread
    /// that delivered the size change, outside the view's lock.
    void setDelegate(const std::shared_ptr<RTCVideoViewDelegate>& delegate);
    std::shared_ptr<RTCVideoViewDelegate> delegate() const;

    // ---- What the view shows -----------------------------------------------

    /// The video's current size in pixels (0 x 0 before the first report).
    CGSize videoSize() const;
    /// Frames rendered since the view was made.
    uint64_t frameCount() const;
    /// The latest frame, or nullptr before the first one.
    RTCVideoFramePtr latestFrame() const;
    /// The latest frame as an 8-bit RGB PNG file image; empty before the first
    /// frame. Rotation is not applied: the pixels are stored as decoded.
    std::vector<uint8_t> latestFramePNG() const;
    /// Writes latestFramePNG() to `path`. False when there is no frame yet or
    /// the file cannot be written.
    bool writeLatestFrameToPNG(const std::string& path) const;

    /// How the video is fitted into the view (a view content-mode value,
    /// default 0). Stored for the application; the view itself does not read
    /// it, and it does not change the frames it keeps.
    long videoContentMode() const;
    void setVideoContentMode(long mode);

    std::string description() const;

  protected:
    QXVCRemoteVideoView() = default;

  private:
    void reportSize(CGSize size);

    mutable std::mutex mutex_;
    std::weak_ptr<RTCVideoViewDelegate> delegate_;
    RTCVideoFramePtr latestFrame_;
    uint64_t frameCount_ = 0;
    CGSize size_;
    long videoContentMode_ = 0;
};

using QXVCRemoteVideoViewPtr = std::shared_ptr<QXVCRemoteVideoView>;
