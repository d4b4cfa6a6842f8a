// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <cstddef>

// A camera that is read one frame at a time. The implementation is a plug-in, because it links
// OpenCV, which is needed only for grabbing frames.
class Camera
{
public:
    struct Frame {
        const void *data = nullptr; // valid until the next read
        std::size_t size = 0;       // bytes at data
        int rows = 0;
        int columns = 0;
    };

    Camera() = default;
    Camera(const Camera &) = delete;
    Camera &operator=(const Camera &) = delete;
    virtual ~Camera() = default; // releases the device

    virtual bool isOpen() const = 0;
    // Requests a frame size and rate; the camera may ignore it.
    virtual void request(int height, int width, int framesPerSecond) = 0;
    // False if no frame could be read.
    virtual bool read(Frame &frame) = 0;
};

// The plug-in's only exported function: opens the camera with the given index. The caller deletes
// the object.
using OpenCameraFunction = Camera *(*)(int index);
inline constexpr char openCameraSymbol[] = "openCamera";
inline constexpr char grabModuleFile[] = "KT6120_grab.so"; // in the program's folder
