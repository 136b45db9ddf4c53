// The network health strip: what the stream delivered in the last second
// (frames received and painted, data rate), what it lost since it started
// (frames dropped, datagrams lost, asked for again and recovered), how long
// a frame took from the socket to the viewer, and the transport.
#pragma once

#include <QFrame>
#include <array>

#include "streamhealth.h"

class QLabel;

class HealthArea : public QFrame {
    Q_OBJECT
public:
    explicit HealthArea(QWidget* parent = nullptr);

    void retranslate();
    // The text of one figure's value, by name ("received", "painted", "rate",
    // "dropped", "datagrams", "latency", "transport").
    QString valueText(const QString& name) const;

public slots:
    void showFigures(const HealthFigures& figures);
    // No stream: the figures go back to dashes.
    void clearFigures();

private:
    enum Figure { Transport, Received, Painted, Rate, Dropped, Datagrams, Latency, FigureCount };
    void showText();

    std::array<QLabel*, FigureCount> captions_{};
    std::array<QLabel*, FigureCount> values_{};
    HealthFigures figures_;
    bool haveFigures_ = false;
};
