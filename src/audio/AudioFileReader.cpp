#include "AudioFileReader.h"

#include "AudioFileError.h"

#include <QFile>
#include <algorithm>
#include <sndfile.h>

AudioFileReader::AudioFileReader(const QString& path)
    : m_path(path) {
    SF_INFO info{};
    m_file = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!m_file)
        throw AudioFileError(QStringLiteral("fichier audio illisible (%1)")
                                 .arg(QString::fromUtf8(sf_strerror(nullptr)).trimmed()));
    if (info.samplerate <= 0 || info.channels <= 0) {
        sf_close(m_file);
        throw AudioFileError(QStringLiteral("aucune piste audio dans ce fichier"));
    }
    m_frames = std::max<int64_t>(0, info.frames);
    m_sampleRate = info.samplerate;
    m_channels = info.channels;
}

AudioFileReader::~AudioFileReader() {
    sf_close(m_file);
}

bool AudioFileReader::seek(int64_t frame) {
    return sf_seek(m_file, std::clamp<int64_t>(frame, 0, m_frames), SEEK_SET) >= 0;
}

int64_t AudioFileReader::read(float* interleaved, int64_t frames) {
    const sf_count_t count = sf_readf_float(m_file, interleaved, frames);
    return count > 0 ? count : 0;
}
