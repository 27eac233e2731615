#include "StereoConverter.h"

#include "AudioFileError.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

StereoConverter::StereoConverter(int inputChannels, int inputRate, int outputRate)
    : m_inputChannels(inputChannels)
    , m_inputRate(inputRate)
    , m_outputRate(outputRate) {
    // Mono and stereo at the output rate need no resampler; mono is widened by hand (full level on both
    // sides, where a channel-layout matrix would lower it by 3 dB).
    const bool needsLayout = inputChannels > 2;
    if (!needsLayout && inputRate == outputRate)
        return;
    AVChannelLayout in{};
    AVChannelLayout out = AV_CHANNEL_LAYOUT_STEREO;
    if (needsLayout)
        av_channel_layout_default(&in, inputChannels);
    else
        in = AV_CHANNEL_LAYOUT_STEREO;
    const int made = swr_alloc_set_opts2(&m_swr, &out, AV_SAMPLE_FMT_FLT, outputRate, &in, AV_SAMPLE_FMT_FLT,
                                         inputRate, 0, nullptr);
    av_channel_layout_uninit(&in);
    if (made < 0 || swr_init(m_swr) < 0) {
        swr_free(&m_swr);
        throw AudioFileError(
            QStringLiteral("conversion impossible de %1 canaux à %2 Hz vers la sortie à %3 Hz")
                .arg(inputChannels)
                .arg(inputRate)
                .arg(outputRate));
    }
}

StereoConverter::~StereoConverter() {
    swr_free(&m_swr);
}

int64_t StereoConverter::maxOutputFrames(int64_t inputFrames) const {
    if (!m_swr)
        return inputFrames;
    return swr_get_out_samples(m_swr, static_cast<int>(inputFrames));
}

void StereoConverter::convert(const float* interleaved, int64_t frames, std::vector<float>& out) {
    out.clear();
    if (m_inputChannels == 1) {
        m_stereo.resize(static_cast<size_t>(frames) * 2);
        for (int64_t i = 0; i < frames; ++i)
            m_stereo[2 * i] = m_stereo[2 * i + 1] = interleaved[i];
        if (!m_swr) {
            out.swap(m_stereo);
            return;
        }
        resample(m_stereo.data(), frames, out);
        return;
    }
    if (!m_swr) {
        out.assign(interleaved, interleaved + frames * 2);
        return;
    }
    resample(interleaved, frames, out);
}

void StereoConverter::flush(std::vector<float>& out) {
    out.clear();
    if (m_swr)
        resample(nullptr, 0, out);
}

void StereoConverter::reset() {
    if (!m_swr)
        return;
    // Dropping the buffered input and re-initialising clears the filter history.
    swr_close(m_swr);
    swr_init(m_swr);
}

void StereoConverter::resample(const float* interleaved, int64_t frames, std::vector<float>& out) {
    const int capacity = swr_get_out_samples(m_swr, static_cast<int>(frames));
    out.resize(static_cast<size_t>(capacity) * 2);
    uint8_t* outPlanes[1] = {reinterpret_cast<uint8_t*>(out.data())};
    const uint8_t* inPlanes[1] = {reinterpret_cast<const uint8_t*>(interleaved)};
    const int produced =
        swr_convert(m_swr, outPlanes, capacity, interleaved ? inPlanes : nullptr, static_cast<int>(frames));
    out.resize(static_cast<size_t>(std::max(0, produced)) * 2);
}
