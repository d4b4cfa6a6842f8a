// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <cstddef>

// A camera that hands over one frame at a time. It is implemented in a module of its own, with
// OpenCV, which a program that never grabs frames should not have to load.
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
    // Asks for a picture format; a camera may keep its own.
    virtual void request(int height, int width, int framesPerSecond) = 0;
    // False when the camera delivers no more.
    virtual bool read(Frame &frame) = 0;
};

// The module's one function, as its symbol: opens the camera with an index; the caller deletes
// it. Null where there is not even memory for one.
using OpenCameraFunction = Camera *(*)(int index);
inline constexpr char openCameraSymbol[] = "openCamera";
inline constexpr char grabModuleFile[] = "KT6120_grab.so"; // beside the program
