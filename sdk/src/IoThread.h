// The pattern the control channel and both stream receivers share: one
// socket whose handlers all run on one io_context, first driven briefly by
// the caller (a bounded exchange), then by a thread of its own.
#pragma once

#include <asio.hpp>
#include <thread>

namespace d3sdk {

// Ends a bounded exchange the caller ran on its own thread: when it did not
// finish, closes the socket and runs the aborted handlers to completion
// (they capture the caller's locals). Leaves `io` ready to run again.
template <class Socket>
void settleExchange(asio::io_context& io, Socket& socket, bool finished) {
    if (!finished) {
        asio::error_code ec;
        socket.close(ec);
        io.run();
    }
    io.restart();
}

// Closes the socket on its io thread, so no handler runs concurrently with
// the close, and joins the thread; `io` can run again afterwards.
template <class Socket>
void stopIoThread(asio::io_context& io, std::thread& thread, Socket& socket) {
    if (thread.joinable()) {
        asio::post(io, [&socket] {
            asio::error_code ec;
            socket.shutdown(Socket::shutdown_both, ec);
            socket.close(ec);
        });
        thread.join();
    }
    io.restart();
}

}  // namespace d3sdk
