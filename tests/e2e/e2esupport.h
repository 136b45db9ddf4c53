// End-to-end support: simulated cameras in this process on the program's own
// loopback block and discovery port, the real main window driving the real
// SDK against them, and a prompt recorder answering every box.
//
// Typical use in a QtTest class:
//   e2e::Session s({"127.0.90.2", 48790, {'3', '1'}});   // in a member
//   initTestCase: QVERIFY2(s.ok(), qPrintable(s.error()));
//   init:         s.openWindow();
//   cleanup:      s.closeWindow();
//   test:         QVERIFY(s.search(2)); QVERIFY(s.startRow(0)); ...
// Every wait runs the event loop until a condition holds (queued signals
// from the session, worker and SDK threads are delivered), with generous
// time limits for a loaded machine. The session runs requests on its own
// thread: settle() waits until it has run everything asked of it and the
// window has taken in what it reported.
#pragma once

#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QStringList>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QtTest>
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "SimulatedCameras.h"
#include "camerasession.h"
#include "d3_sdk/DeviceManager.h"
#include "debug.h"
#include "promptrecorder.h"
#include "sessionsettle.h"
#include "widget.h"

namespace e2e {

// Default limit of a wait: far above what a healthy run needs, even on a
// loaded machine or under a sanitizer; it only decides how long a broken
// build takes to fail.
constexpr int kWaitMs = 60000;

struct Setup {
    std::string baseAddress;  // camera i gets the last octet + i
    uint16_t discoveryPort = 0;
    std::vector<char> models;  // model digit per camera
    int heartbeatTimeoutMs = 3000;
    int rebootMs = 300;
    int fps = 0;  // 0: the camera's default frame rate
};

// Runs the event loop until cond holds (queued signals from the session,
// worker and SDK threads are delivered meanwhile); false if it never did.
inline bool waitFor(const std::function<bool()>& cond, int timeoutMs = kWaitMs) {
    return QTest::qWaitFor(cond, timeoutMs);
}

class Session {
public:
    explicit Session(Setup setup) : setup_(std::move(setup)) {
        // The SDK reads both at every search: it finds only this program's cameras.
        setenv("D3_DISCOVERY_PORT", std::to_string(setup_.discoveryPort).c_str(), 1);
        setenv("D3_DISCOVERY_ADDRESSES", "127.255.255.255", 1);
        // The window keeps language.info and saved files in the working folder.
        if (workDir_.isValid()) QDir::setCurrent(workDir_.path());
        d3sim::CamerasConfig cfg;
        cfg.count = int(setup_.models.size());
        cfg.baseAddress = setup_.baseAddress;
        cfg.models = setup_.models;
        cfg.discoveryPort = setup_.discoveryPort;
        cfg.heartbeatTimeoutMs = setup_.heartbeatTimeoutMs;
        cfg.rebootMs = setup_.rebootMs;
        cfg.fps = setup_.fps;
        cameras_ = std::make_unique<d3sim::SimulatedCameras>(cfg);
        ok_ = cameras_->start();
        if (!ok_) error_ = QString::fromStdString(cameras_->lastError());
    }
    ~Session() {
        closeWindow();
        cameras_->stop();
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    bool ok() const { return ok_; }
    QString error() const { return error_; }
    QString workDir() const { return workDir_.path(); }

    // --- Cameras
    int cameraCount() { return cameras_->size(); }
    d3sim::CameraServer& camera(int i) { return (*cameras_)[i]; }
    // Names of the commands camera i received, oldest first.
    std::vector<std::string> commandNames(int i) {
        std::vector<std::string> names;
        for (const auto& c : camera(i).camera().commandLog()) names.push_back(c.name);
        return names;
    }
    // Commands camera i received whose name starts with Set, oldest first:
    // what the window changed.
    std::vector<std::string> setters(int i) {
        std::vector<std::string> out;
        for (const std::string& n : commandNames(i))
            if (n.rfind("Set", 0) == 0) out.push_back(n);
        return out;
    }
    bool received(int i, const std::string& name) {
        const auto names = commandNames(i);
        return std::find(names.begin(), names.end(), name) != names.end();
    }
    size_t commandCount() {
        size_t n = 0;
        for (int i = 0; i < cameraCount(); ++i) n += camera(i).camera().commandLog().size();
        return n;
    }
    void clearCommandLogs() {
        for (int i = 0; i < cameraCount(); ++i) camera(i).camera().clearCommandLog();
    }
    // Camera i vanishes from the network (kill), and comes back as after a
    // power cycle (ensureUp waits until it answers). Use these rather than
    // the server's stop()/start(): a stopped server does not start again.
    void kill(int i) { camera(i).kill(); }
    bool ensureUp(int i) {
        if (camera(i).killed() && !camera(i).restart()) return false;
        return camera(i).waitUntilUp(kWaitMs);
    }

    // --- The window. One at a time: the window registers itself globally.
    Widget& openWindow() {
        closeWindow();
        prompts_ = std::make_unique<PromptRecorder>();
        window_ = std::make_unique<Widget>();
        return *window_;
    }
    // Destroys the window, then ends any session it left open in the SDK.
    void closeWindow() {
        if (!window_) return;
        window_.reset();
        DeviceManager::GetInstance().StopStream();
        DeviceManager::GetInstance().DisconnectFromDevice();
        prompts_.reset();
    }
    Widget& window() { return *window_; }
    CameraSession& session() { return window_->session(); }
    SessionStatus status() { return window_->session().status(); }
    bool streaming() { return status().state == SessionState::Streaming; }
    bool connected() { return status().connected(); }
    bool recovering() { return status().state == SessionState::Recovering; }

    // Waits until the session has run every request and script and the
    // window has handled what they reported (which may ask for more).
    bool settle(int timeoutMs = kWaitMs) { return settleSession(window_->session(), window_.get(), timeoutMs); }
    PromptRecorder& prompts() { return *prompts_; }

    // Any object of the form (or a child window) by its object name.
    template <typename T = QWidget>
    T* child(const char* name) {
        T* c = window_ ? window_->findChild<T*>(name) : nullptr;
        if (!c) qWarning("e2e: no child %s", name);
        return c;
    }
    QPushButton* button(const char* name) { return child<QPushButton>(name); }
    QComboBox* combo() { return child<QComboBox>("comboBox"); }
    QString labelText(const char* name) {
        QLabel* l = child<QLabel>(name);
        return l ? l->text() : QString();
    }
    // Clicks like a user: a disabled or hidden-by-state button does nothing.
    // Returns whether the button was enabled.
    bool click(const char* name) {
        QPushButton* b = button(name);
        if (!b || !b->isEnabled()) return false;
        b->click();
        return true;
    }

    // --- Log window
    QStringList logLines() {
        QCoreApplication::processEvents();
        auto* browser = window_->debugWindow()->findChild<QTextBrowser*>("textBrowser");
        return browser ? browser->toPlainText().split('\n', Qt::SkipEmptyParts) : QStringList();
    }
    int logCount(const QString& part) {
        const QStringList lines = logLines();
        return int(std::count_if(lines.begin(), lines.end(), [&](const QString& l) { return l.contains(part); }));
    }
    bool waitForLog(const QString& part, int timeoutMs = kWaitMs) {
        return waitFor([&] { return logCount(part) > 0; }, timeoutMs);
    }

    // --- Prompts
    QStringList promptTitles() const {
        QStringList titles;
        for (const auto& r : prompts_->requests) titles << r.title;
        return titles;
    }
    // The message boxes shown so far, as "title|text".
    QStringList boxes() const {
        QStringList out;
        for (const auto& r : prompts_->requests)
            if (r.kind == UiPrompt::Kind::Warning || r.kind == UiPrompt::Kind::Information)
                out << r.title + "|" + r.text;
        return out;
    }
    QStringList promptTexts() const {
        QStringList texts;
        for (const auto& r : prompts_->requests) texts << r.text;
        return texts;
    }

    // --- Common steps
    // Presses search and waits until the list holds `expected` devices.
    // A search listens for answers for a fixed window; on a machine loaded
    // enough (sanitizer builds, parallel tests) an in-process camera can miss
    // it, so a short list is searched again, as a user would. More cameras
    // than expected fail at once.
    bool search(int expected) {
        for (int attempt = 1;; ++attempt) {
            if (!click("pushButton")) return false;
            if (!settle()) return false;
            if (combo()->count() == expected) return true;
            if (combo()->count() > expected || attempt == 5) break;
        }
        qWarning("e2e: search listed %d devices, expected %d", combo()->count(), expected);
        return false;
    }
    // Row of the device string of camera i in the list, -1 if absent.
    int rowOf(int i) {
        const QString wanted = QString::fromStdString(camera(i).deviceString());
        for (int r = 0; r < combo()->count(); ++r)
            if (combo()->itemText(r) == wanted) return r;
        return -1;
    }
    // Selects camera i in the list, presses start and waits for "Stop".
    bool startCamera(int i) {
        const int row = rowOf(i);
        if (row < 0) return false;
        combo()->setCurrentIndex(row);
        if (!settle() || !click("pushButton_2")) return false;
        return settle() && streaming();
    }
    bool stop() {
        if (!click("pushButton_2")) return false;
        return settle() && !streaming();
    }

private:
    Setup setup_;
    QTemporaryDir workDir_;
    std::unique_ptr<d3sim::SimulatedCameras> cameras_;
    bool ok_ = false;
    QString error_;
    std::unique_ptr<PromptRecorder> prompts_;
    std::unique_ptr<Widget> window_;
};

}  // namespace e2e
