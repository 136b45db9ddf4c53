// A request waiting for a reply that will not come ends with NETWORK_ERROR
// as soon as the channel breaks, long before its own timeout, whether we close
// the channel or the camera hangs up. The camera is a socket of the test that
// reads requests and never answers.
#include <gtest/gtest.h>

#include <asio.hpp>
#include <atomic>
#include <chrono>

#include "blockingcall.h"
#include "ControlChannel.h"

namespace {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;

constexpr int32_t kNetworkError = 33;

class SilentCamera {
public:
    SilentCamera() : acceptor_(io_, tcp::endpoint(asio::ip::make_address_v4("127.0.86.1"), 0)), peer_(io_) {}
    uint16_t port() const { return acceptor_.local_endpoint().port(); }
    void accept() { acceptor_.accept(peer_); }
    // Returns once a request's header has arrived.
    void readRequestHeader() {
        uint8_t header[d3proto::kHeaderSize];
        asio::read(peer_, asio::buffer(header));
    }
    void hangUp() {
        asio::error_code ec;
        peer_.shutdown(tcp::socket::shutdown_both, ec);
        peer_.close(ec);
    }

private:
    asio::io_context io_;
    tcp::acceptor acceptor_;
    tcp::socket peer_;
};

}  // namespace

TEST(ControlChannelLink, WaitingRequestEndsWithNetworkErrorWhenTheChannelBreaks) {
    for (const bool weClose : {true, false}) {
        SCOPED_TRACE(weClose ? "closed by us" : "hung up by the camera");
        SilentCamera camera;
        d3sdk::ControlChannel channel;
        ASSERT_TRUE(channel.connect("127.0.86.1", camera.port(), std::chrono::seconds(5)));
        camera.accept();

        int32_t status = 0;
        bool beforeTimeout = false;
        sdktest::BlockingCall request([&] {
            const auto timeout = std::chrono::seconds(10);
            const auto deadline = Clock::now() + timeout;
            status = channel.request(d3proto::Command::Heartbeat, d3proto::Json::object(), nullptr, timeout);
            beforeTimeout = Clock::now() < deadline;
        });
        camera.readRequestHeader();
        EXPECT_TRUE(request.blocks());
        if (weClose)
            channel.close();
        else
            camera.hangUp();
        request.join();
        EXPECT_EQ(status, kNetworkError);
        EXPECT_TRUE(beforeTimeout) << "the request slept until its timeout";
        EXPECT_TRUE(channel.broken());
    }
}
