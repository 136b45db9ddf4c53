// The configuration commands of the menu: export the panel's settings to a
// "config" file and import one, and reset the camera's stored configuration
// or the whole camera. Files are written and read on the recorder's writer
// threads and the camera calls run as session scripts, so the window keeps
// painting; the boxes come in the order the commands reach them.
#pragma once

#include <QObject>
#include <QString>

#include "camerascript.h"
#include "logline.h"
#include "panelconfig.h"
#include "sessionstate.h"

class CameraSession;
class ControlPanel;
class FrameDisplay;
class QWidget;
class Recorder;
class SessionPanel;

class ConfigCommands : public QObject {
    Q_OBJECT
public:
    struct Parts {
        QWidget* window;
        CameraSession* session;
        SessionPanel* sessionPanel;
        ControlPanel* controlPanel;
        FrameDisplay* display;
        Recorder* recorder;
        LogSink log;
    };
    explicit ConfigCommands(const Parts& parts, QObject* parent = nullptr);

    // The folder the next export starts in (empty until one was chosen).
    QString exportFolder() const { return exportFolder_; }
    // The settings an export writes: both panels together.
    PanelConfig currentConfiguration() const;

public slots:
    void exportConfiguration();
    void importConfiguration();
    void resetConfiguration();
    void resetDevice();

signals:
    void prompt(PromptKind kind, const QString& title, const QString& text);
    // An import has shown its last box (or was refused before reading).
    void importFinished();
    void exportFinished();

private:
    void applyImported(const PanelConfig& config, bool leftOver);
    void finishImport(bool leftOver);
    void resetCommand(int line, const QString& logText, CameraScript::Call call, const QString& doneText);
    void warn(const QString& title, const QString& text) { emit prompt(PromptKind::Warning, title, text); }

    Parts parts_;
    QString exportFolder_;
};
