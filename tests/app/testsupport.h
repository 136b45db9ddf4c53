// Shared pieces of the window tests: the fake camera and the prompt recorder.
#pragma once

#include "fakecamera.h"
#include "promptrecorder.h"
