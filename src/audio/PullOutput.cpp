#include "PullOutput.h"

#include "AudioRenderSource.h"

#include <algorithm>

std::vector<float> PullOutput::pull(size_t frames) {
    std::vector<float> out(frames * 2, 0.0f);
    pullInto(out.data(), frames);
    return out;
}

bool PullOutput::pullInto(float* out, size_t frames) {
    if (!m_source) {
        std::fill(out, out + frames * 2, 0.0f);
        return false;
    }
    m_source->prepare(frames);
    m_source->render(out, frames);
    return true;
}
