// An in-memory filter graph: abuffer -> the chain -> aformat (packed float) ->
// abuffersink. The frames go in as blocks and come out as the chain emits
// them; every call into FFmpeg is checked.

#include "audio_effects.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "work_progress.h"

extern "C"
{
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
}

namespace
{
constexpr int kBlockFrames = 8192;

std::string Why(const char* What, int Error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {0};
    av_strerror(Error, text, sizeof(text));
    return std::string(What) + ": " + text;
}

struct GraphDeleter
{
    void operator()(AVFilterGraph* Graph) const { avfilter_graph_free(&Graph); }
};
struct FrameDeleter
{
    void operator()(AVFrame* Frame) const { av_frame_free(&Frame); }
};

// Takes every frame the sink has ready; AVERROR(EAGAIN) and AVERROR_EOF end a
// pull normally.
int Drain(AVFilterContext* Sink, AVFrame* Frame, int Channels, std::vector<float>& Out)
{
    for (;;)
    {
        const int got = av_buffersink_get_frame(Sink, Frame);
        if (got == AVERROR(EAGAIN) || got == AVERROR_EOF)
            return 0;
        if (got < 0)
            return got;
        const float* data = reinterpret_cast<const float*>(Frame->extended_data[0]);
        Out.insert(Out.end(), data, data + static_cast<size_t>(Frame->nb_samples) * Channels);
        av_frame_unref(Frame);
    }
}
}  // namespace

std::string AudioEffects::RunFilterChain(const std::string& Chain, const float* Frames, int64_t Count, int Channels,
                                         int SampleRate, std::vector<float>& Out, WorkProgress* Progress)
{
    Out.clear();
    if (Channels <= 0 || SampleRate <= 0 || Count < 0)
        return "no audio to filter";
    std::unique_ptr<AVFilterGraph, GraphDeleter> graph(avfilter_graph_alloc());
    if (!graph)
        return "out of memory for a filter graph";

    AVChannelLayout layout;
    av_channel_layout_default(&layout, Channels);
    char layoutName[64] = {0};
    av_channel_layout_describe(&layout, layoutName, sizeof(layoutName));
    av_channel_layout_uninit(&layout);
    const std::string sourceArgs = "sample_rate=" + std::to_string(SampleRate) +
                                   ":sample_fmt=flt:channel_layout=" + layoutName +
                                   ":time_base=1/" + std::to_string(SampleRate);
    AVFilterContext* source = nullptr;
    AVFilterContext* sink = nullptr;
    int error = avfilter_graph_create_filter(&source, avfilter_get_by_name("abuffer"), "in", sourceArgs.c_str(),
                                             nullptr, graph.get());
    if (error < 0)
        return Why("audio source", error);
    error = avfilter_graph_create_filter(&sink, avfilter_get_by_name("abuffersink"), "out", nullptr, nullptr,
                                         graph.get());
    if (error < 0)
        return Why("audio sink", error);

    AVFilterInOut* outputs = avfilter_inout_alloc();
    AVFilterInOut* inputs = avfilter_inout_alloc();
    if (!outputs || !inputs)
    {
        avfilter_inout_free(&outputs);
        avfilter_inout_free(&inputs);
        return "out of memory for a filter graph";
    }
    outputs->name = av_strdup("in");
    outputs->filter_ctx = source;
    inputs->name = av_strdup("out");
    inputs->filter_ctx = sink;
    const std::string chain = Chain + ",aformat=sample_fmts=flt:channel_layouts=" + layoutName;
    error = avfilter_graph_parse_ptr(graph.get(), chain.c_str(), &inputs, &outputs, nullptr);
    avfilter_inout_free(&outputs);
    avfilter_inout_free(&inputs);
    if (error < 0)
        return Why("filter chain", error);
    if ((error = avfilter_graph_config(graph.get(), nullptr)) < 0)
        return Why("filter graph", error);

    std::unique_ptr<AVFrame, FrameDeleter> in(av_frame_alloc());
    std::unique_ptr<AVFrame, FrameDeleter> got(av_frame_alloc());
    if (!in || !got)
        return "out of memory for frames";
    Out.reserve(static_cast<size_t>(Count) * Channels);
    for (int64_t done = 0; done < Count;)
    {
        const int block = static_cast<int>(std::min<int64_t>(kBlockFrames, Count - done));
        in->nb_samples = block;
        in->format = AV_SAMPLE_FMT_FLT;
        in->sample_rate = SampleRate;
        av_channel_layout_default(&in->ch_layout, Channels);
        in->pts = done;
        if ((error = av_frame_get_buffer(in.get(), 0)) < 0)
            return Why("frame buffer", error);
        std::memcpy(in->extended_data[0], Frames + done * Channels, sizeof(float) * block * Channels);
        if ((error = av_buffersrc_add_frame(source, in.get())) < 0)
            return Why("feeding the filter", error);
        av_frame_unref(in.get());
        if ((error = Drain(sink, got.get(), Channels, Out)) < 0)
            return Why("filtering", error);
        done += block;
        if (!WorkGoesOn(Progress, block))
            return WorkCancelledMessage();
    }
    if ((error = av_buffersrc_add_frame(source, nullptr)) < 0)
        return Why("ending the filter", error);
    if ((error = Drain(sink, got.get(), Channels, Out)) < 0)
        return Why("filtering", error);
    return "";
}
