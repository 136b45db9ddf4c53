// The save group of the control panel: where frames go ("保存路径"), a single
// save, continuous saving started and ended by its buttons, and a running
// count of frames saved, waiting for the disk and not saved. It only asks:
// the recorder does the writing, off the GUI thread.
#pragma once

#include <QObject>
#include <QString>

#include "sessionstate.h"

class QLabel;
class QPushButton;
class QWidget;

class SaveControls : public QObject {
    Q_OBJECT
public:
    SaveControls(QWidget* panel, QPushButton* savePath, QPushButton* save, QPushButton* startSave, QPushButton* endSave,
                 QLabel* counts);

    QString saveRoot() const { return root_; }
    // The first path unit that is a CJK ideograph, or -1: such a save root is refused.
    static int firstCjkIdeograph(const QString& path);

public slots:
    void chooseSaveRoot();
    void saveSingleFrame();
    void startSaving();
    void endSaving();
    // A stopping stream ends continuous saving; the buttons stay as they are.
    void streamStopping();
    void showCounts(unsigned saved, unsigned waiting, unsigned failed);
    void retranslate();

signals:
    void saveRootChanged(const QString& root);
    // Make `folder` and save the next frame into it.
    void singleSaveRequested(const QString& folder);
    void continuousSavingChanged(bool on);
    void prompt(PromptKind kind, const QString& title, const QString& text);

private:
    bool rootChosen();

    QWidget* panel_;
    QPushButton* start_;
    QPushButton* end_;
    QLabel* counts_;
    QString root_;
    unsigned saved_ = 0;
    unsigned waiting_ = 0;
    unsigned failed_ = 0;
    bool shown_ = false;
};
