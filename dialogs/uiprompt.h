// The one way the viewer asks the user something: every message box and file
// dialog goes through here, so a test (or an unattended run) can answer
// instead of a person and see what would have been shown.
#pragma once

#include <QFileDialog>
#include <QMessageBox>
#include <QString>
#include <functional>

class QWidget;

namespace UiPrompt {

enum class Kind { Warning, Information, Question, OpenFileName, SaveFileName, ExistingDirectory };

struct Request {
    Kind kind;
    QWidget* parent;
    QString title;  // box title or dialog caption
    QString text;   // box text, or the start folder of a file dialog
    QString filter;
};

struct Answer {
    QMessageBox::StandardButton button = QMessageBox::Ok;
    QString path;  // empty: the dialog was cancelled
};

// Answers every request instead of showing it; an empty function restores
// the real dialogs.
using Responder = std::function<Answer(const Request&)>;
void setResponder(Responder responder);

// With DEXALON_PROMPT_AUTOANSWER set, requests are written to standard error
// and answered with Ok / cancel, so the program can run without a person.
void installFromEnvironment();

QMessageBox::StandardButton warning(QWidget* parent, const QString& title, const QString& text,
                                    QMessageBox::StandardButtons buttons = QMessageBox::Ok);
QMessageBox::StandardButton information(QWidget* parent, const QString& title, const QString& text,
                                        QMessageBox::StandardButtons buttons = QMessageBox::Ok);
QMessageBox::StandardButton question(QWidget* parent, const QString& title, const QString& text,
                                     QMessageBox::StandardButtons buttons = QMessageBox::Yes | QMessageBox::No);
QString getOpenFileName(QWidget* parent, const QString& caption, const QString& dir = QString(),
                        const QString& filter = QString());
QString getSaveFileName(QWidget* parent, const QString& caption, const QString& dir = QString(),
                        const QString& filter = QString());
QString getExistingDirectory(QWidget* parent, const QString& caption, const QString& dir = QString(),
                             QFileDialog::Options options = QFileDialog::ShowDirsOnly);

}  // namespace UiPrompt
