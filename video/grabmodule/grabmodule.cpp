// SPDX-License-Identifier: LicenseRef-KT6120
#include "camera.h"

#include <opencv2/videoio.hpp>

namespace
{

class OpenCvCamera : public Camera
{
public:
    explicit OpenCvCamera(int index) : camera(index) {}

    bool isOpen() const override { return camera.isOpened(); }

    void request(int height, int width, int framesPerSecond) override
    {
        camera.set(cv::CAP_PROP_FRAME_HEIGHT, height);
        camera.set(cv::CAP_PROP_FRAME_WIDTH, width);
        camera.set(cv::CAP_PROP_FPS, framesPerSecond);
    }

    bool read(Frame &frame) override
    {
        if (!camera.read(picture))
            return false;
        frame = {picture.data, picture.total() * picture.elemSize(), picture.rows, picture.cols};
        return true;
    }

private:
    cv::VideoCapture camera;
    cv::Mat picture;
};

} // namespace

extern "C" Camera *openCamera(int index)
{
    return new OpenCvCamera(index);
}
