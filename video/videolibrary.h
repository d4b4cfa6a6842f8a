#pragma once

#include <QObject>
#include <QString>

#include <string>

class VideoLibrary : public QObject
{
    Q_OBJECT

public:
    VideoLibrary();

signals:
    void startCaptureSignal();

public slots:
    void initCapture();
    void startVideo();
    void stopVideo();
    void startStreaming(std::string ip, std::string port);
    void startStreaming(QString ip, QString port);
    void stopStreaming();
};
