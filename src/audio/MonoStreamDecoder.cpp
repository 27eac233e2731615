#include "MonoStreamDecoder.h"

#include <QFile>
#include <mutex>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
}

namespace {
QString errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}
} // namespace

MonoStreamDecoder::~MonoStreamDecoder() {
    av_freep(&m_mono);
    av_frame_free(&m_frame);
    av_packet_free(&m_packet);
    swr_free(&m_swr);
    avcodec_free_context(&m_codec);
    avformat_close_input(&m_format);
}

bool MonoStreamDecoder::open(const QString& path) {
    // The libraries' own chatter (skipped samples, damaged frames) says nothing the caller does not handle.
    static std::once_flag quiet;
    std::call_once(quiet, [] { av_log_set_level(AV_LOG_FATAL); });
    if (avformat_open_input(&m_format, QFile::encodeName(path).constData(), nullptr, nullptr) < 0)
        return false;
    if (avformat_find_stream_info(m_format, nullptr) < 0)
        return false;
    m_stream = av_find_best_stream(m_format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (m_stream < 0)
        return false;
    m_sampleRate = m_format->streams[m_stream]->codecpar->sample_rate;
    return m_sampleRate > 0;
}

std::optional<int64_t> MonoStreamDecoder::expectedSamples() const {
    const AVStream* stream = m_format->streams[m_stream];
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
        return av_rescale_q(stream->duration, stream->time_base, AVRational{1, m_sampleRate});
    if (m_format->duration != AV_NOPTS_VALUE && m_format->duration > 0)
        return av_rescale(m_format->duration, m_sampleRate, AV_TIME_BASE);
    return std::nullopt;
}

bool MonoStreamDecoder::startReading(QString* reason) {
    const AVCodecParameters* parameters = m_format->streams[m_stream]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    if (!codec) {
        *reason = QStringLiteral("no decoder for %1")
                      .arg(QString::fromUtf8(avcodec_get_name(parameters->codec_id)));
        return false;
    }
    m_codec = avcodec_alloc_context3(codec);
    int result = m_codec ? avcodec_parameters_to_context(m_codec, parameters) : AVERROR(ENOMEM);
    if (result >= 0)
        result = avcodec_open2(m_codec, codec, nullptr);
    if (result < 0) {
        *reason = errorText(result);
        return false;
    }
    AVChannelLayout in{};
    if (m_codec->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || m_codec->ch_layout.nb_channels <= 0)
        av_channel_layout_default(&in, std::max(1, m_codec->ch_layout.nb_channels));
    else
        av_channel_layout_copy(&in, &m_codec->ch_layout);
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    result = swr_alloc_set_opts2(&m_swr, &mono, AV_SAMPLE_FMT_FLT, m_codec->sample_rate, &in,
                                 m_codec->sample_fmt, m_codec->sample_rate, 0, nullptr);
    av_channel_layout_uninit(&in);
    if (result >= 0)
        result = swr_init(m_swr);
    if (result < 0) {
        *reason = errorText(result);
        return false;
    }
    m_packet = av_packet_alloc();
    m_frame = av_frame_alloc();
    if (!m_packet || !m_frame) {
        *reason = errorText(AVERROR(ENOMEM));
        return false;
    }
    return true;
}

void MonoStreamDecoder::drainFrames(const Sink& sink, int64_t& total) {
    while (avcodec_receive_frame(m_codec, m_frame) >= 0) {
        const int capacity = swr_get_out_samples(m_swr, m_frame->nb_samples);
        if (capacity > m_monoCapacity) {
            av_freep(&m_mono);
            m_mono = static_cast<float*>(av_malloc(static_cast<size_t>(capacity) * sizeof(float)));
            m_monoCapacity = m_mono ? capacity : 0;
        }
        uint8_t* out[1] = {reinterpret_cast<uint8_t*>(m_mono)};
        const int produced =
            m_mono ? swr_convert(m_swr, out, m_monoCapacity,
                                 const_cast<const uint8_t**>(m_frame->extended_data), m_frame->nb_samples)
                   : 0;
        if (produced > 0) {
            sink(m_mono, produced);
            total += produced;
        }
        av_frame_unref(m_frame);
    }
}

int64_t MonoStreamDecoder::readAll(const Sink& sink) {
    int64_t total = 0;
    while (av_read_frame(m_format, m_packet) >= 0) {
        if (m_packet->stream_index == m_stream && avcodec_send_packet(m_codec, m_packet) >= 0)
            drainFrames(sink, total);
        av_packet_unref(m_packet);
    }
    avcodec_send_packet(m_codec, nullptr);
    drainFrames(sink, total);
    return total;
}
