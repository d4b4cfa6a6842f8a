// SPDX-License-Identifier: LicenseRef-KT6120

// Stands in for the camera: an element v4l2src that shows a moving test picture with a running
// time. The plug-in file bears the name of the system's own, which it hides when its folder is
// in GST_PLUGIN_PATH. /run/bench/camera may say:
//
//   missing   the device cannot be opened
//   lost      the device goes while it runs, and cannot be opened
//
// Anything else, or no file, is a camera that works. As a device it has one user at a time: who
// opens it while another holds it is told that it is busy.

#include "control.h"

#include <gst/gst.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace
{

// Locked by whoever holds the camera; the kernel lets go of it when that process dies.
constexpr char holderPlace[] = "/run/bench/camera.holder";
constexpr int notHeld = -1;

struct BenchCamera {
    StandIn base; // which keeps the device's name
    GstGhostPad *output;
    int holder; // descriptor
};

struct BenchCameraClass {
    GstBinClass parent;
};

GstStaticPadTemplate sourceTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw"));

G_DEFINE_TYPE(BenchCamera, bench_camera, GST_TYPE_BIN)

BenchCamera *self(gpointer object)
{
    return static_cast<BenchCamera *>(object);
}

const char *device(BenchCamera *camera)
{
    return g_value_get_string(&camera->base.setting);
}

GstPadProbeReturn onFrame(GstPad *, GstPadProbeInfo *info, gpointer data)
{
    if (!controlSays("camera", "lost"))
        return GST_PAD_PROBE_OK;
    GST_ELEMENT_ERROR(data, RESOURCE, READ, ("Could not read from resource."),
                      ("the bench lost device '%s'", device(self(data))));
    // As a device's own: the reader also sees the flow fail.
    gst_buffer_unref(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_PAD_PROBE_INFO_FLOW_RETURN(info) = GST_FLOW_ERROR;
    return GST_PAD_PROBE_HANDLED;
}

// The picture is made when the camera is opened for the first time: what it takes to draw one is
// no weight of a program whose camera is missing.
void makePicture(BenchCamera *camera)
{
    GstBin *bin = GST_BIN(camera);
    GstElement *picture = addElement(bin, "videotestsrc");
    GstElement *clock = addElement(bin, "timeoverlay");
    GstElement *format = addElement(bin, "capsfilter");
    GstElement *fields = addElement(bin, "capssetter");
    if (!picture || !clock || !format || !fields)
        return;
    g_object_set(picture, "is-live", TRUE, "pattern", /* smpte */ 0, "horizontal-speed", 2,
                 nullptr);
    g_object_set(clock, "font-desc", "Sans, 24", nullptr);
    // As a PAL camera's grabber has it.
    gst_util_set_object_arg(G_OBJECT(format), "caps",
                            "video/x-raw,format=I420,width=720,height=576,framerate=25/1");
    gst_util_set_object_arg(G_OBJECT(fields), "caps", "video/x-raw,interlace-mode=interleaved");
    gst_element_link_many(picture, clock, format, fields, nullptr);
    GstPad *drawn = gst_element_get_static_pad(fields, "src");
    gst_ghost_pad_set_target(camera->output, drawn);
    gst_object_unref(drawn);

    GstPad *frames = gst_element_get_static_pad(picture, "src");
    gst_pad_add_probe(frames, GST_PAD_PROBE_TYPE_BUFFER, onFrame, camera, nullptr);
    gst_object_unref(frames);
}

// Outside the bench's world there is nothing to lock, and whoever comes has the camera.
bool hold(BenchCamera *camera)
{
    camera->holder = open(holderPlace, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    return camera->holder < 0 || flock(camera->holder, LOCK_EX | LOCK_NB) == 0;
}

void letGo(BenchCamera *camera)
{
    if (camera->holder >= 0)
        close(camera->holder);
    camera->holder = notHeld;
}

bool openDevice(GstElement *element)
{
    BenchCamera *camera = self(element);
    if (controlSays("camera", "missing") || controlSays("camera", "lost")) {
        GST_ELEMENT_ERROR(element, RESOURCE, NOT_FOUND,
                          ("Cannot identify device '%s'.", device(camera)),
                          ("the bench has no camera"));
        return false;
    }
    if (!hold(camera)) {
        letGo(camera);
        GST_ELEMENT_ERROR(element, RESOURCE, BUSY, ("Device '%s' is busy", device(camera)),
                          ("another holds the bench's camera"));
        return false;
    }
    if (GST_BIN(element)->numchildren == 0)
        makePicture(camera);
    return true;
}

GstStateChangeReturn changeState(GstElement *element, GstStateChange transition)
{
    if (transition == GST_STATE_CHANGE_NULL_TO_READY && !openDevice(element))
        return GST_STATE_CHANGE_FAILURE;
    const GstStateChangeReturn result =
        GST_ELEMENT_CLASS(bench_camera_parent_class)->change_state(element, transition);
    if (transition == GST_STATE_CHANGE_READY_TO_NULL)
        letGo(self(element));
    return result;
}

void bench_camera_class_init(BenchCameraClass *type)
{
    describeStandIn(type,
                    g_param_spec_string("device", "Device", "Device location", "/dev/video0",
                                        GParamFlags(G_PARAM_READWRITE | G_PARAM_CONSTRUCT)),
                    {&sourceTemplate}, "Bench camera", "Source/Video",
                    "Shows a moving test picture");
    GST_ELEMENT_CLASS(type)->change_state = changeState;
}

void bench_camera_init(BenchCamera *camera)
{
    camera->holder = notHeld;
    GstPadTemplate *pattern = gst_static_pad_template_get(&sourceTemplate);
    GstPad *pad = gst_ghost_pad_new_no_target_from_template("src", pattern);
    camera->output = GST_GHOST_PAD(pad);
    gst_element_add_pad(GST_ELEMENT(camera), pad);
    gst_object_unref(pattern);
}

} // namespace

STANDIN_PLUGIN(video4linux2, "v4l2src", bench_camera_get_type(), "Stand-in for a camera")
