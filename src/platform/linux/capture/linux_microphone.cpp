#include "platform/linux/capture/linux_microphone.h"

#include <atomic>
#include <vector>

#include "foundation/dispatch.h"
#include "foundation/log.h"
#include "platform/linux/capture/media_input.h"
#include "platform/linux/capture/reader_thread.h"

namespace quorvane::platform::linux_capture {

using foundation::ffmpeg::FramePtr;
using foundation::ffmpeg::ResamplerPtr;
using foundation::ffmpeg::errorText;

// Reads on its own thread while started; frames and the end reach the main thread by posts that
// name the start they belong to, so none arrives after stop().
class LinuxMicrophone::Stream : public CaptureStream, public std::enable_shared_from_this<Stream> {
public:
    Stream(std::unique_ptr<MediaInput> input, PcmFormat format, Sink sink)
        : input_(std::move(input)), format_(format), sink_(std::move(sink)) {}
    ~Stream() override { reader_.stop(); }

    void start() override {
        if (running_ || ended_) return;
        running_ = true;
        unsigned long generation = ++generation_;
        reader_.start([this, generation] { read(generation); }, [this] { input_->interrupt(true); });
    }
    void stop() override {
        if (!running_) return;
        running_ = false;
        ++generation_;
        reader_.stop();
        input_->interrupt(false);
    }
    void setEndHandler(std::function<void()> handler) override { endHandler_ = std::move(handler); }

private:
    void read(unsigned long generation) {
        FramePtr frame(av_frame_alloc());
        std::int64_t delivered = 0;  // frames since this start
        while (frame && !reader_.stopping()) {
            auto result = input_->next(frame.get());
            if (result == MediaInput::Read::Interrupted) return;
            if (result == MediaInput::Read::End) break;
            std::vector<std::int16_t> samples;
            if (!convert(*frame, samples)) break;
            auto frames = samples.size() / static_cast<std::size_t>(format_.channels);
            delivered += static_cast<std::int64_t>(frames);
            // A chunk is there once its last sample has been spoken.
            if (!reader_.waitUntil(static_cast<double>(delivered) / format_.sampleRate)) return;
            post([samples = std::move(samples), frames](Stream& self) {
                if (self.sink_) self.sink_(samples.data(), frames);
            }, generation);
        }
        if (reader_.stopping()) return;
        foundation::logLine("microphone input ended: " + input_->endReason());
        post([](Stream& self) {
            self.running_ = false;
            self.ended_ = true;
            if (self.endHandler_) self.endHandler_();
        }, generation);
    }

    // Runs `task` on the main thread if the capture is still in the start it was made in.
    template <typename Task>
    void post(Task task, unsigned long generation) {
        std::weak_ptr<Stream> weak = weak_from_this();
        foundation::dispatch::main().async([weak, generation, task = std::move(task)]() mutable {
            auto self = weak.lock();
            if (self && self->running_ && self->generation_ == generation) task(*self);
        });
    }

    bool convert(const AVFrame& frame, std::vector<std::int16_t>& out) {
        if (!resampler_) {
            AVChannelLayout layout;
            av_channel_layout_default(&layout, format_.channels);
            SwrContext* context = nullptr;
            // FFmpeg 5 takes the layouts by non-const pointer but only reads them.
            int result = swr_alloc_set_opts2(&context, &layout, AV_SAMPLE_FMT_S16, format_.sampleRate,
                                             const_cast<AVChannelLayout*>(&frame.ch_layout),
                                             static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
            resampler_.reset(context);
            av_channel_layout_uninit(&layout);
            if (result < 0 || swr_init(resampler_.get()) < 0) {
                resampler_.reset();
                return false;
            }
        }
        int capacity = swr_get_out_samples(resampler_.get(), frame.nb_samples);
        if (capacity < 0) return false;
        out.resize(static_cast<std::size_t>(capacity) * static_cast<std::size_t>(format_.channels));
        auto* target = reinterpret_cast<std::uint8_t*>(out.data());
        int produced = swr_convert(resampler_.get(), &target, capacity,
                                   const_cast<const std::uint8_t**>(frame.extended_data), frame.nb_samples);
        if (produced < 0) return false;
        out.resize(static_cast<std::size_t>(produced) * static_cast<std::size_t>(format_.channels));
        return true;
    }

    std::unique_ptr<MediaInput> input_;
    const PcmFormat format_;
    const Sink sink_;
    ResamplerPtr resampler_;  // the reader thread's
    ReaderThread reader_;
    std::function<void()> endHandler_;
    // Main thread only.
    bool running_ = false;
    bool ended_ = false;
    std::atomic<unsigned long> generation_{0};
};

LinuxMicrophone::LinuxMicrophone(std::string url, PcmFormat format) : url_(std::move(url)), format_(format) {}

PcmFormat LinuxMicrophone::format() const { return format_; }

std::shared_ptr<CaptureStream> LinuxMicrophone::openCapture(Sink sink) {
    std::lock_guard lock(mutex_);
    if (!sink || !open_.expired()) return nullptr;
    OpenFailure failure;
    auto input = MediaInput::open(url_, MediaInput::Kind::Audio, &failure);
    if (!input) {
        foundation::logLine("microphone " + url_ + " cannot be opened: " + failure.message);
        return nullptr;
    }
    auto stream = std::make_shared<Stream>(std::move(input), format_, std::move(sink));
    open_ = stream;
    return stream;
}

std::optional<OpenFailure> LinuxMicrophone::probe() const {
    std::lock_guard lock(mutex_);
    if (!open_.expired()) return OpenFailure{AVERROR(EBUSY), errorText(AVERROR(EBUSY))};
    OpenFailure failure;
    if (MediaInput::open(url_, MediaInput::Kind::Audio, &failure)) return std::nullopt;
    return failure;
}

}  // namespace quorvane::platform::linux_capture
