#include "camerascript.h"

CameraStep& CameraScript::call(LogOrigin origin, const QString& before, Call fn, const QString& failure,
                               ResultCheck check) {
    CameraStep step;
    if (!before.isEmpty()) step.before = origin.text(before);
    step.call = std::move(fn);
    if (!failure.isEmpty()) step.failure << origin.text(failure);
    step.check = check;
    steps_.push_back(std::move(step));
    return steps_.back();
}

CameraStep& CameraScript::log(LogOrigin origin, const QString& line) {
    CameraStep step;
    step.before = origin.text(line);
    steps_.push_back(std::move(step));
    return steps_.back();
}

CameraStep& CameraScript::pause(int ms) {
    CameraStep step;
    step.pauseMs = ms;
    steps_.push_back(std::move(step));
    return steps_.back();
}

CameraScript& CameraScript::append(const CameraScript& other) {
    steps_.insert(steps_.end(), other.steps_.begin(), other.steps_.end());
    return *this;
}
