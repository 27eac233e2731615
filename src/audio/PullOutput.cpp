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
    // In slices the size of a device's buffer, so that any pull fits in what the stems keep ready.
    for (size_t done = 0; done < frames;) {
        const size_t slice = std::min(sliceFrames, frames - done);
        m_source->prepare(slice);
        m_source->render(out + done * 2, slice);
        done += slice;
    }
    return true;
}
