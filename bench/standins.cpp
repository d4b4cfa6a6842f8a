// SPDX-License-Identifier: LicenseRef-KT6120

// A GStreamer plug-in in place of the hardware that a desk lacks. Its file has the name of the
// system's own plug-in, which it hides where its folder is in GST_PLUGIN_PATH.
//
// v4l2src, a camera, shows a moving test picture with a running time. As a device it has one user
// at a time. The file /run/bench/camera may hold:
//
//   missing   the device cannot be opened
//   lost      the device vanishes while it runs, and cannot be opened
//   timed     each frame shows when it leaves the camera: the low 24 bits of the time of day in
//             milliseconds as squares, the highest at the top left; white is 1
//
// v4l2h264enc is x264enc with the controls and raw formats of the compute module's encoder. Like
// that one, it needs an explicit level. It fails at the next frame when /run/bench/encoder holds
// "fails".

#include <gst/gst.h>

#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace
{

struct BenchCamera {
    GstBin base;
    const char *device; // interned
    int holder;         // descriptor of a file that the user of the camera locks
};

using BenchCameraClass = GstBinClass;
using BenchEncoder = GstBin;
using BenchEncoderClass = GstBinClass;

GstStaticPadTemplate cameraTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw"));
GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw,format={I420,NV12}"));
GstStaticPadTemplate sourceTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("video/x-h264,stream-format=byte-stream,alignment=au"));

G_DEFINE_TYPE(BenchCamera, bench_camera, GST_TYPE_BIN)
G_DEFINE_TYPE(BenchEncoder, bench_encoder, GST_TYPE_BIN)

bool controlSays(const char *file, const char *word)
{
    std::string said;
    std::ifstream(std::string("/run/bench/") + file) >> said;
    return said == word;
}

// A pad as the stand-in's class describes it, with nothing behind it.
GstPad *addPad(gpointer standIn, const char *name)
{
    GstPadTemplate *pattern = gst_element_get_pad_template(GST_ELEMENT(standIn), name);
    GstPad *pad = gst_ghost_pad_new_no_target_from_template(name, pattern);
    gst_element_add_pad(GST_ELEMENT(standIn), pad);
    return pad;
}

// Puts the elements of a pipeline description behind the stand-in's pads.
void addElements(gpointer standIn, const char *description)
{
    g_autoptr(GError) error = nullptr;
    GstElement *inner = gst_parse_bin_from_description(description, TRUE, &error);
    if (!inner)
        g_error("the bench lacks an element: %s", error->message);
    gst_bin_add(GST_BIN(standIn), inner);
    for (GList *pad = GST_ELEMENT(standIn)->pads; pad; pad = pad->next) {
        g_autoptr(GstPad) target = gst_element_get_static_pad(inner, GST_PAD_NAME(pad->data));
        gst_ghost_pad_set_target(GST_GHOST_PAD(pad->data), target);
    }
}

// The neighbour sees the flow fail, as with a device.
GstPadProbeReturn failFlow(GstPadProbeInfo *info)
{
    gst_buffer_unref(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_PAD_PROBE_INFO_FLOW_RETURN(info) = GST_FLOW_ERROR;
    return GST_PAD_PROBE_HANDLED;
}

// Before the frame is marked.
GstPadProbeReturn onCameraFrame(GstPad *pad, GstPadProbeInfo *info, gpointer camera)
{
    const gboolean timed = controlSays("camera", "timed");
    const gint64 milliseconds = g_get_real_time() / 1000;
    g_autoptr(GstElement) mark = gst_pad_get_parent_element(pad);
    g_object_set(mark, "enabled", timed, "pattern-data", milliseconds, nullptr);
    if (!controlSays("camera", "lost"))
        return GST_PAD_PROBE_OK;
    GST_ELEMENT_ERROR(camera, RESOURCE, READ, ("Could not read from resource."),
                      ("the bench lost device '%s'", static_cast<BenchCamera *>(camera)->device));
    return failFlow(info);
}

bool openDevice(BenchCamera *camera)
{
    if (controlSays("camera", "missing") || controlSays("camera", "lost")) {
        GST_ELEMENT_ERROR(camera, RESOURCE, NOT_FOUND,
                          ("Cannot identify device '%s'.", camera->device),
                          ("the bench has no camera"));
        return false;
    }
    // Outside the sandbox there is nothing to lock, and any number of users.
    camera->holder = open("/run/bench/camera.holder", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (camera->holder >= 0 && flock(camera->holder, LOCK_EX | LOCK_NB) != 0) {
        close(camera->holder);
        GST_ELEMENT_ERROR(camera, RESOURCE, BUSY, ("Device '%s' is busy", camera->device),
                          ("another process holds the bench's camera"));
        return false;
    }
    // The elements of the picture use memory: a missing camera lacks them.
    if (camera->base.numchildren == 0) {
        addElements(camera, "videotestsrc is-live=true horizontal-speed=2 "
                            "! timeoverlay font-desc=\"Sans, 24\" "
                            "! simplevideomark name=mark pattern-count=0 pattern-data-count=24 "
                            "pattern-width=16 pattern-height=16 bottom-offset=560 "
                            "! video/x-raw,format=I420,width=720,height=576,framerate=25/1 "
                            "! capssetter caps=\"video/x-raw,interlace-mode=interleaved,"
                            "colorimetry=2:4:5:1\""); // as USB grabbers report it
        g_autoptr(GstElement) mark = gst_bin_get_by_name(GST_BIN(camera), "mark");
        g_autoptr(GstPad) frames = gst_element_get_static_pad(mark, "sink");
        gst_pad_add_probe(frames, GST_PAD_PROBE_TYPE_BUFFER, onCameraFrame, camera, nullptr);
    }
    return true;
}

GstStateChangeReturn changeState(GstElement *element, GstStateChange transition)
{
    auto *camera = reinterpret_cast<BenchCamera *>(element);
    if (transition == GST_STATE_CHANGE_NULL_TO_READY && !openDevice(camera))
        return GST_STATE_CHANGE_FAILURE;
    const GstStateChangeReturn result =
        GST_ELEMENT_CLASS(bench_camera_parent_class)->change_state(element, transition);
    if (transition == GST_STATE_CHANGE_READY_TO_NULL)
        close(camera->holder);
    return result;
}

void setDevice(GObject *object, guint, const GValue *value, GParamSpec *)
{
    reinterpret_cast<BenchCamera *>(object)->device = g_intern_string(g_value_get_string(value));
}

void bench_camera_class_init(BenchCameraClass *type)
{
    G_OBJECT_CLASS(type)->set_property = setDevice;
    g_object_class_install_property(
        G_OBJECT_CLASS(type), 1,
        g_param_spec_string("device", "Device", "Device location", "/dev/video0",
                            GParamFlags(G_PARAM_WRITABLE | G_PARAM_CONSTRUCT)));
    GstElementClass *element = GST_ELEMENT_CLASS(type);
    element->change_state = changeState;
    gst_element_class_add_static_pad_template(element, &cameraTemplate);
    gst_element_class_set_static_metadata(element, "Bench camera", "Source/Video",
                                          "Shows a moving test picture", "the bench");
}

void bench_camera_init(BenchCamera *camera)
{
    addPad(camera, "src");
}

// The device's default level is too low for a camera's picture.
GstPadProbeReturn onCaps(GstPad *, GstPadProbeInfo *info, gpointer encoder)
{
    if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) != GST_EVENT_CAPS)
        return GST_PAD_PROBE_OK;
    g_autoptr(GstPad) pad = gst_element_get_static_pad(GST_ELEMENT(encoder), "src");
    g_autoptr(GstCaps) caps = gst_pad_get_allowed_caps(pad);
    if (caps && !gst_caps_is_empty(caps)
        && gst_structure_get_string(gst_caps_get_structure(caps, 0), "level"))
        return GST_PAD_PROBE_OK;
    GST_ELEMENT_ERROR(encoder, STREAM, FORMAT, ("The level is too low."), ("none was set"));
    return GST_PAD_PROBE_DROP;
}

GstPadProbeReturn onEncoderFrame(GstPad *, GstPadProbeInfo *info, gpointer encoder)
{
    if (!controlSays("encoder", "fails"))
        return GST_PAD_PROBE_OK;
    GST_ELEMENT_ERROR(encoder, STREAM, ENCODE, ("Could not encode stream."),
                      ("the bench made the encoder fail"));
    return failFlow(info);
}

void setControls(GObject *object, guint, const GValue *value, GParamSpec *)
{
    const auto *controls = static_cast<const GstStructure *>(g_value_get_boxed(value));
    g_autoptr(GstElement) x264 = gst_bin_get_by_name(GST_BIN(object), "x264");
    int number = 0;
    if (!controls || !x264)
        return;
    if (gst_structure_get_int(controls, "video_bitrate", &number))
        g_object_set(x264, "bitrate", number / 1000, nullptr);
    if (gst_structure_get_int(controls, "h264_i_frame_period", &number))
        g_object_set(x264, "key-int-max", number, nullptr);
}

void bench_encoder_class_init(BenchEncoderClass *type)
{
    G_OBJECT_CLASS(type)->set_property = setControls;
    g_object_class_install_property(G_OBJECT_CLASS(type), 1,
                                    g_param_spec_boxed("extra-controls", "Extra controls",
                                                       "Controls of the device", GST_TYPE_STRUCTURE,
                                                       G_PARAM_WRITABLE));
    GstElementClass *element = GST_ELEMENT_CLASS(type);
    gst_element_class_add_static_pad_template(element, &sinkTemplate);
    gst_element_class_add_static_pad_template(element, &sourceTemplate);
    gst_element_class_set_static_metadata(element, "Bench encoder", "Codec/Encoder/Video/Hardware",
                                          "H.264 encoder like the kernel's", "the bench");
}

void bench_encoder_init(BenchEncoder *encoder)
{
    GstPad *frames = addPad(encoder, "sink");
    addPad(encoder, "src");
    addElements(encoder, "capsfilter caps=video/x-raw,format={I420,NV12},colorimetry={bt601,bt709} "
                         "! x264enc name=x264 tune=zerolatency speed-preset=ultrafast "
                         "! capsfilter caps=video/x-h264,stream-format=byte-stream");
    gst_pad_add_probe(frames, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, onCaps, encoder, nullptr);
    gst_pad_add_probe(frames, GST_PAD_PROBE_TYPE_BUFFER, onEncoderFrame, encoder, nullptr);
}

gboolean registerAll(GstPlugin *plugin)
{
    return gst_element_register(plugin, "v4l2src", GST_RANK_PRIMARY, bench_camera_get_type())
           && gst_element_register(plugin, "v4l2h264enc", GST_RANK_PRIMARY,
                                   bench_encoder_get_type());
}

} // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, video4linux2, "Stand-ins of the bench",
                  registerAll, GSTREAMER_VERSION, "Proprietary", PACKAGE, "https://localhost/")
