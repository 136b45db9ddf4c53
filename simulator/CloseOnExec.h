// A camera's sockets must not leak into programs its host process starts (a
// test running a tool as a child): a child holding a copy of a listening or
// discovery socket keeps the camera from taking its ports back after a reboot.
#pragma once

#include <fcntl.h>

namespace d3sim {

inline void closeOnExec(int fd) {
    const int flags = fd >= 0 ? ::fcntl(fd, F_GETFD) : -1;
    if (flags >= 0) ::fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
}

}  // namespace d3sim
