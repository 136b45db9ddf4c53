#include "uiprompt.h"

#include <cstdio>

namespace UiPrompt {
namespace {

Responder& responder() {
    static Responder r;
    return r;
}

Answer autoAnswer(const Request& request) {
    static const char* const kNames[] = {"warning", "information", "question", "open", "save", "directory"};
    std::fprintf(stderr, "prompt %s: %s | %s\n", kNames[int(request.kind)], qUtf8Printable(request.title),
                 qUtf8Printable(request.text));
    std::fflush(stderr);
    return Answer{};
}

QMessageBox::StandardButton box(const Request& request, QMessageBox::StandardButtons buttons) {
    if (responder()) return responder()(request).button;
    switch (request.kind) {
        case Kind::Warning:
            return QMessageBox::warning(request.parent, request.title, request.text, buttons);
        case Kind::Information:
            return QMessageBox::information(request.parent, request.title, request.text, buttons);
        default:
            return QMessageBox::question(request.parent, request.title, request.text, buttons);
    }
}

}  // namespace

void setResponder(Responder r) { responder() = std::move(r); }

void installFromEnvironment() {
    if (qEnvironmentVariableIsSet("DEXALON_PROMPT_AUTOANSWER")) setResponder(autoAnswer);
}

QMessageBox::StandardButton warning(QWidget* parent, const QString& title, const QString& text,
                                    QMessageBox::StandardButtons buttons) {
    return box({Kind::Warning, parent, title, text, {}}, buttons);
}

QMessageBox::StandardButton information(QWidget* parent, const QString& title, const QString& text,
                                        QMessageBox::StandardButtons buttons) {
    return box({Kind::Information, parent, title, text, {}}, buttons);
}

QMessageBox::StandardButton question(QWidget* parent, const QString& title, const QString& text,
                                     QMessageBox::StandardButtons buttons) {
    return box({Kind::Question, parent, title, text, {}}, buttons);
}

QString getOpenFileName(QWidget* parent, const QString& caption, const QString& dir, const QString& filter) {
    if (responder()) return responder()({Kind::OpenFileName, parent, caption, dir, filter}).path;
    return QFileDialog::getOpenFileName(parent, caption, dir, filter);
}

QString getSaveFileName(QWidget* parent, const QString& caption, const QString& dir, const QString& filter) {
    if (responder()) return responder()({Kind::SaveFileName, parent, caption, dir, filter}).path;
    return QFileDialog::getSaveFileName(parent, caption, dir, filter);
}

QString getExistingDirectory(QWidget* parent, const QString& caption, const QString& dir,
                             QFileDialog::Options options) {
    if (responder()) return responder()({Kind::ExistingDirectory, parent, caption, dir, {}}).path;
    return QFileDialog::getExistingDirectory(parent, caption, dir, options);
}

}  // namespace UiPrompt
