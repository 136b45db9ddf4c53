// Soak: the real viewer streaming from two simulated cameras (in a forked
// child, driven through their control sockets) while faults come on a
// schedule: loss bursts, latency and jitter spikes, a bandwidth limit, pauses
// shorter and longer than the heartbeat, kills with restarts and address
// changes. After each fault the viewer must paint frames again within the
// recovery budget. The viewer process's resident memory, threads and open
// descriptors are sampled at the end of every cycle; the stream alternates
// between TCP and UDP from one cycle to the next.
//
//   xvfb-run -a build/bench/soak/soak --minutes 60 --report soak.json
//
// Exit status 0 when every fault was recovered from and, once warmed up,
// neither threads nor descriptors grew and memory grew less than
// --rss-growth-pct (judged on runs of six cycles or more).
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QTest>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "FaultControl.h"
#include "SimulatedCameras.h"
#include "camerasession.h"
#include "debug.h"
#include "framedisplay.h"
#include "heaptrim.h"
#include "procstats.h"
#include "promptrecorder.h"
#include "widget.h"

namespace {

constexpr char kBase[] = "127.0.131.2";   // the colour camera the viewer streams from
constexpr char kMoved[] = "127.0.131.9";  // where an address change sends it
constexpr uint16_t kDiscoveryPort = 48831;
constexpr uint16_t kCtlPort = 48832;
// Frames must flow again this long after a fault ended: faults that keep the
// link end within a few seconds; a lost link takes the viewer's reconnect loop
// (one attempt a second, thirty in all) plus the camera's reboot.
constexpr int kSoftBudgetMs = 10000;
constexpr int kLostLinkBudgetMs = 40000;
constexpr int kFramesAgain = 10;  // painted frames that count as "flowing"
constexpr int kStartMs = 60000;   // search, start or disconnect on a loaded machine

struct Options {
    double minutes = 2;
    QString report;
    double rssGrowthPct = 5;
};

// Two cameras (colour and depth-only) with control sockets in a child
// process, so the viewer's figures are its own.
class CameraProcess {
public:
    explicit CameraProcess(const QString& stateDir) {
        pid_ = fork();
        if (pid_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        sigset_t stop;
        sigemptyset(&stop);
        sigaddset(&stop, SIGTERM);
        sigaddset(&stop, SIGINT);
        pthread_sigmask(SIG_BLOCK, &stop, nullptr);
        d3sim::CamerasConfig cfg;
        cfg.count = 2;
        cfg.baseAddress = kBase;
        cfg.models = {'3', '1'};
        cfg.discoveryPort = kDiscoveryPort;
        cfg.fps = 25;
        cfg.rebootMs = 1000;
        cfg.stateDir = stateDir.toStdString();
        d3sim::SimulatedCameras cameras(cfg);
        if (!cameras.start()) {
            std::fprintf(stderr, "soak: cameras: %s\n", cameras.lastError().c_str());
            _exit(1);
        }
        std::vector<std::unique_ptr<d3sim::FaultControlServer>> controls;
        for (int i = 0; i < cameras.size(); ++i) {
            auto c = std::make_unique<d3sim::FaultControlServer>(cameras[i]);
            std::string err;
            if (!c->start(cameras[i].address(), kCtlPort, err)) {
                std::fprintf(stderr, "soak: control socket: %s\n", err.c_str());
                _exit(1);
            }
            controls.push_back(std::move(c));
        }
        int sig = 0;
        sigwait(&stop, &sig);
        controls.clear();
        cameras.stop();
        _exit(0);
    }
    ~CameraProcess() {
        if (pid_ <= 0) return;
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    CameraProcess(const CameraProcess&) = delete;
    CameraProcess& operator=(const CameraProcess&) = delete;

private:
    pid_t pid_ = -1;
};

std::string ctl(const std::string& line) {
    const std::string answer = d3sim::sendFaultCommand(kBase, kCtlPort, line);
    if (answer.rfind("ok", 0) != 0) std::fprintf(stderr, "soak: ctl %s: %s\n", line.c_str(), answer.c_str());
    return answer;
}

bool waitFor(const std::function<bool()>& cond, int ms) { return QTest::qWaitFor(cond, ms); }

struct Fault {
    std::string name;
    std::vector<std::string> begin;  // control commands that start it
    int holdMs = 0;                  // how long it lasts before `end`
    std::vector<std::string> end;    // commands that end it (none: it ends by itself)
    int endsAfterMs = 0;             // a fault that ends by itself: when
    bool losesLink = false;
};

std::vector<Fault> schedule(const std::string& moveTo) {
    return {
        {"loss 30% for 6 s", {"loss 0.3"}, 6000, {"loss 0"}, 0, false},
        {"latency 800 ms for 5 s", {"latency 800"}, 5000, {"latency 0"}, 0, false},
        {"jitter 200 ms and 100 Mbit/s for 5 s",
         {"jitter 200", "bandwidth 100"},
         5000,
         {"jitter 0", "bandwidth 0"},
         0,
         false},
        {"pause 1.5 s (under the heartbeat)", {"pause 1.5"}, 0, {}, 1500, false},
        {"pause 5 s (over the heartbeat)", {"pause 5"}, 0, {}, 5000, true},
        {"kill, back after 3 s", {"kill 3"}, 0, {}, 3000, true},
        {"address change to " + moveTo, {"address " + moveTo}, 0, {}, 1000, true},
    };
}

class Soak {
public:
    explicit Soak(const Options& o) : opt_(o) {}

    int run() {
        window_ = std::make_unique<Widget>();
        window_->resize(1600, 900);
        window_->show();
        if (!QTest::qWaitForWindowExposed(window_.get())) {
            fail("the window did not show");
            return finish(false);
        }
        QElapsedTimer clock;
        clock.start();
        const qint64 total = qint64(opt_.minutes * 60000);
        bool tcp = true;
        std::string moveTo = kMoved;
        int cycle = 0;
        while (cycle < 2 || clock.elapsed() < total) {
            // A start that fails is counted; a user would press start again.
            int starts = 0;
            while (!startStreaming(tcp))
                if (++starts == 3) return finish(false);
            std::printf("cycle %d over %s\n", cycle, tcp ? "TCP" : "UDP");
            for (const Fault& f : schedule(moveTo)) {
                // A fault the viewer did not recover from is counted; a user
                // would then start the camera again, and so does the soak.
                if (!inject(f, cycle, tcp) && !startStreaming(tcp)) return finish(false);
                if (clock.elapsed() >= total && cycle >= 2) break;
            }
            moveTo = moveTo == kMoved ? kBase : kMoved;
            sample(cycle, tcp);
            ++cycle;
            tcp = !tcp;
        }
        return finish(true);
    }

private:
    CameraSession& session() { return window_->session(); }
    bool streaming() { return session().status().state == SessionState::Streaming; }
    unsigned painted() { return window_->frameDisplay().paintedFrames(1); }

    // Ends the session, chooses the transport (it applies when a camera is
    // opened) and starts the colour camera as a user would: search, pick it,
    // start.
    bool startStreaming(bool tcp) {
        auto* disconnect = window_->findChild<QPushButton*>("pushButton_6");
        auto* search = window_->findChild<QPushButton*>("pushButton");
        if (session().status().connected()) {
            disconnect->click();
            // The buttons follow the session's state through the event loop:
            // a click before they do would be lost, as a user's would.
            if (!waitFor([&] { return !session().busy() && !session().status().connected() && search->isEnabled(); },
                         kStartMs))
                return retry("the session did not end");
        }
        session().setTransport(tcp);
        auto* combo = window_->findChild<QComboBox*>("comboBox");
        const unsigned searches = session().requestCount();
        search->click();
        // The list of the last search stays until this one has run.
        if (!waitFor([&] { return session().requestCount() > searches && !session().busy() && combo->count() >= 2; },
                     kStartMs))
            return retry("a search did not find both cameras");
        // The colour camera: model digit 3 at index 8 of its serial.
        for (int i = 0; i < combo->count(); ++i)
            if (combo->itemText(i).size() > 8 && combo->itemText(i)[8] == '3') combo->setCurrentIndex(i);
        // Picking another camera ends the session first: the start button
        // comes back once that has run, as a user would see.
        auto* start = window_->findChild<QPushButton*>("pushButton_2");
        if (!waitFor([&] { return !session().busy() && start->isEnabled(); }, kStartMs))
            return retry("the start button did not come back");
        const unsigned before = painted();
        const unsigned requests = session().requestCount();
        start->click();
        if (session().requestCount() == requests) return retry("the start button took no click");
        if (!waitFor([&] { return streaming() && painted() >= before + kFramesAgain; }, kStartMs))
            return retry(streaming() ? "streaming, but no frames painted" : "the camera did not start");
        return true;
    }

    bool inject(const Fault& f, int cycle, bool tcp) {
        QElapsedTimer t;
        for (const std::string& c : f.begin)
            if (ctl(c).rfind("ok", 0) != 0) return fail("the camera did not take a fault command");
        if (f.holdMs > 0) {
            // Frames keep coming through a fault that holds the link, slower perhaps.
            QTest::qWait(f.holdMs);
            for (const std::string& c : f.end)
                if (ctl(c).rfind("ok", 0) != 0) return fail("the camera did not take a fault command");
        } else {
            QTest::qWait(f.endsAfterMs);
        }
        t.start();
        const int budget = f.losesLink ? kLostLinkBudgetMs : kSoftBudgetMs;
        const unsigned before = painted();
        const bool back = waitFor([&] { return streaming() && painted() >= before + kFramesAgain; }, budget);
        const qint64 ms = t.elapsed();
        const quint64 written = window_->debugWindow()->linesWritten();
        const quint64 lines = written - faultLinesSeen_;
        faultLinesSeen_ = written;
        std::printf("  %-40s %s after %6.2f s (budget %d s), %llu log lines\n", f.name.c_str(),
                    back ? "frames again" : "NO FRAMES", ms / 1000.0, budget / 1000, (unsigned long long)lines);
        std::fflush(stdout);
        QJsonObject r{
            {"cycle", cycle},    {"transport", tcp ? "tcp" : "udp"}, {"fault", QString::fromStdString(f.name)},
            {"recovered", back}, {"seconds", ms / 1000.0},           {"budgetSeconds", budget / 1000},
            {"logLines", double(lines)}};
        faults_.append(r);
        if (!back) ++unrecovered_;
        return back;
    }

    void sample(int cycle, bool tcp) {
        // Let the last recovery's threads and sockets settle first.
        QTest::qWait(2000);
        const soak::ProcStats s = soak::ProcStats::now();
        samples_.push_back({cycle, tcp, s});
        logLines_.push_back(logLines());
        const CycleLog log = cycleLog();
        cycleLogs_.push_back(log);
        std::printf(
            "  sample: rss %.1f MB (heap in use %.1f MB, held %.1f MB), %d threads, %d descriptors, %d log lines\n",
            s.rssKb / 1024.0, s.heapInUseKb / 1024.0, s.heapHeldKb / 1024.0, s.threads, s.fds, logLines_.back());
        std::printf("  log: %llu lines this cycle, the most repeated %d times: %s\n", (unsigned long long)log.lines,
                    log.topCount, qPrintable(log.topLine));
        std::fflush(stdout);
    }

    // The lines the log window got during the last cycle and the one that
    // came most often (digits masked, so a counter in it does not split it).
    struct CycleLog {
        quint64 lines = 0;
        int topCount = 0;
        QString topLine;
    };
    CycleLog cycleLog() {
        CycleLog log;
        const quint64 written = window_->debugWindow()->linesWritten();
        log.lines = written - linesSeen_;
        linesSeen_ = written;
        const auto* browser = window_->debugWindow()->findChild<QTextBrowser*>("textBrowser");
        if (!browser || log.lines == 0) return log;
        const QStringList all = browser->toPlainText().split('\n');
        const int first = int(std::max<qint64>(0, qint64(all.size()) - qint64(log.lines)));
        QHash<QString, int> counts;
        static const QRegularExpression digits("[0-9]+");
        for (int i = first; i < all.size(); ++i) {
            const QString key = QString(all[i]).replace(digits, "#");
            const int n = ++counts[key];
            if (n > log.topCount) {
                log.topCount = n;
                log.topLine = key;
            }
        }
        return log;
    }

    // Lines the log window holds: they live as long as the window, between
    // whatever the frames allocate and free.
    int logLines() {
        const auto* text = window_->debugWindow()->findChild<QTextBrowser*>("textBrowser");
        return text ? text->document()->blockCount() : -1;
    }

    // A start that has to be tried again is reported, not counted as a
    // fault the viewer did not recover from.
    bool retry(const char* why) {
        std::fprintf(stderr, "soak: %s; starting again\n", why);
        printLastLogLines();
        ++startRetries_;
        return false;
    }

    // What the viewer's log window said last, to tell why a start failed.
    void printLastLogLines() {
        auto* browser = window_->debugWindow()->findChild<QTextBrowser*>("textBrowser");
        if (!browser) return;
        const QStringList lines = browser->toPlainText().split('\n', Qt::SkipEmptyParts);
        for (int i = std::max(0, int(lines.size()) - 30); i < lines.size(); ++i)
            std::fprintf(stderr, "  log: %s\n", qPrintable(lines[i]));
    }

    bool fail(const char* why) {
        std::fprintf(stderr, "soak: %s\n", why);
        ++unrecovered_;
        return false;
    }

    int finish(bool completed) {
        const soak::Growth g = soak::judgeGrowth(samples_, 2);
        bool ok = completed && unrecovered_ == 0;
        QJsonObject report{{"faults", faults_},
                           {"unrecovered", unrecovered_},
                           {"startRetries", startRetries_},
                           {"cycles", int(samples_.size())}};
        QJsonArray samples;
        for (size_t i = 0; i < samples_.size(); ++i) {
            const soak::Sample& s = samples_[i];
            samples.append(QJsonObject{{"cycle", s.cycle},
                                       {"transport", s.tcp ? "tcp" : "udp"},
                                       {"rssKb", double(s.stats.rssKb)},
                                       {"heapInUseKb", double(s.stats.heapInUseKb)},
                                       {"heapHeldKb", double(s.stats.heapHeldKb)},
                                       {"threads", s.stats.threads},
                                       {"fds", s.stats.fds},
                                       {"logLines", logLines_[i]},
                                       {"cycleLogLines", double(cycleLogs_[i].lines)},
                                       {"mostRepeatedLine", cycleLogs_[i].topLine},
                                       {"mostRepeatedCount", cycleLogs_[i].topCount}});
        }
        report["samples"] = samples;
        if (g.judged) {
            report["rssGrowthPct"] = g.rssGrowthPct;
            report["threadGrowth"] = g.threadGrowth;
            report["fdGrowth"] = g.fdGrowth;
            std::printf("after warm-up: rss %+.2f %%, threads %+d, descriptors %+d\n", g.rssGrowthPct, g.threadGrowth,
                        g.fdGrowth);
            ok = ok && g.rssGrowthPct < opt_.rssGrowthPct && g.threadGrowth <= 0 && g.fdGrowth <= 0;
        } else {
            std::printf("after warm-up: too few cycles to judge growth\n");
        }
        int recovered = 0;
        for (const auto& f : faults_) recovered += f.toObject()["recovered"].toBool() ? 1 : 0;
        std::printf("%d of %d faults recovered from; soak %s\n", recovered, int(faults_.size()),
                    ok ? "passed" : "FAILED");
        if (!opt_.report.isEmpty()) {
            QFile out(opt_.report);
            if (out.open(QIODevice::WriteOnly)) out.write(QJsonDocument(report).toJson());
        }
        // Leave the camera alone before the window goes.
        auto* disconnect = window_ ? window_->findChild<QPushButton*>("pushButton_6") : nullptr;
        if (disconnect && disconnect->isEnabled()) {
            disconnect->click();
            waitFor([&] { return !session().busy(); }, 20000);
        }
        window_.reset();
        return ok ? 0 : 1;
    }

    Options opt_;
    std::unique_ptr<Widget> window_;
    QJsonArray faults_;
    int unrecovered_ = 0;
    int startRetries_ = 0;
    std::vector<soak::Sample> samples_;
    std::vector<int> logLines_;
    std::vector<CycleLog> cycleLogs_;
    quint64 linesSeen_ = 0;
    quint64 faultLinesSeen_ = 0;
};

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&](const char* name) -> const char* {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "soak: %s needs a value\n", name);
                return nullptr;
            }
            return argv[++i];
        };
        if (a == "--help" || a == "-h") {
            std::printf(
                "usage: soak [--minutes M] [--report FILE] [--rss-growth-pct P]\n"
                "Streams from simulated cameras through the real viewer while faults come on a schedule;\n"
                "fails when frames do not flow again within the recovery budget after a fault, or (runs of\n"
                "six cycles or more) when threads or descriptors grow or memory grows by P %% or more.\n"
                "  --minutes M          how long to run (default 2; at least two cycles run)\n"
                "  --report FILE        write the figures as JSON\n"
                "  --rss-growth-pct P   allowed growth of resident memory after warm-up (default 5)\n");
            std::exit(0);
        }
        const char* v = nullptr;
        if (a == "--minutes" && (v = value("--minutes"))) {
            o.minutes = std::atof(v);
        } else if (a == "--report" && (v = value("--report"))) {
            o.report = QString::fromLocal8Bit(v);
        } else if (a == "--rss-growth-pct" && (v = value("--rss-growth-pct"))) {
            o.rssGrowthPct = std::atof(v);
        } else {
            std::fprintf(stderr, "soak: unknown or incomplete option %s (try --help)\n", a.c_str());
            return false;
        }
    }
    if (o.minutes <= 0) {
        std::fprintf(stderr, "soak: --minutes must be positive\n");
        return false;
    }
    return true;
}

}  // namespace

// The session's debug lines would drown the soak's own report.
void quietDebug(QtMsgType type, const QMessageLogContext&, const QString& text) {
    if ((type == QtDebugMsg || type == QtInfoMsg) && !std::getenv("SOAK_DEBUG")) return;
    std::fprintf(stderr, "%s\n", qPrintable(text));
}

int main(int argc, char** argv) {
    qInstallMessageHandler(quietDebug);
    Options options;
    if (!parse(argc, argv, options)) return 2;
    QTemporaryDir state;
    QTemporaryDir work;
    if (!state.isValid() || !work.isValid()) {
        std::fprintf(stderr, "soak: no temporary folder\n");
        return 1;
    }
    // The cameras first, in their own process, before any thread exists here.
    CameraProcess cameras(state.path());
    setenv("D3_DISCOVERY_PORT", std::to_string(kDiscoveryPort).c_str(), 1);
    setenv("D3_DISCOVERY_ADDRESSES", "127.255.255.255", 1);
    if (!getenv("DISPLAY")) setenv("QT_QPA_PLATFORM", "offscreen", 0);
    // The window keeps language.info and its working files in the working folder.
    QDir::setCurrent(work.path());
    keepLargeBlocksMapped();  // as the viewer does
    QApplication app(argc, argv);
    // Boxes (a lost link shows one) are answered and kept, as in the tests.
    PromptRecorder prompts;
    if (!waitFor([] { return d3sim::sendFaultCommand(kBase, kCtlPort, "status").rfind("ok", 0) == 0; }, 20000)) {
        std::fprintf(stderr, "soak: the cameras did not come up\n");
        return 1;
    }
    return Soak(options).run();
}
