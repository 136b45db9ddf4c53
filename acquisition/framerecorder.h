// What the frame workers hand every finished frame to, under the frame lock,
// right after its pictures were made: the saving side copies what it needs
// and returns at once, so a slow disk never holds up the views.
#pragma once

#include "framebuffers.h"

class FrameRecorder {
public:
    virtual ~FrameRecorder() = default;
    // `registered`: the frame came from a registered read, whose coloured
    // point cloud is the one saved.
    virtual void frameReady(FrameBuffers& frames, bool registered) = 0;
};
