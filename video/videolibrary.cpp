#include "videolibrary.h"

VideoLibrary::VideoLibrary() = default;
void VideoLibrary::initCapture() {}
void VideoLibrary::startVideo() {}
void VideoLibrary::stopVideo() {}
void VideoLibrary::startStreaming(std::string, std::string) {}
void VideoLibrary::startStreaming(QString, QString) {}
void VideoLibrary::stopStreaming() {}
