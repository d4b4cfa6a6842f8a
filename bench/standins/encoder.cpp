// SPDX-License-Identifier: LicenseRef-KT6120

// Stands in for the encoder that the kernel offers: an element v4l2h264enc around x264enc, with
// the controls and raw formats of the compute module's. Like it, it wants to be told the level.
// When /run/bench/encoder says "fails", it fails with the next frame.

#include "control.h"

#include <gst/gst.h>

namespace
{

constexpr int bitsPerKilobit = 1000;

struct BenchEncoder {
    StandIn base; // which keeps the controls
    GstElement *x264;
};

struct BenchEncoderClass {
    GstBinClass parent;
};

GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw,format={I420,NV12}"));
GstStaticPadTemplate sourceTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("video/x-h264,stream-format=byte-stream,alignment=au"));

G_DEFINE_TYPE(BenchEncoder, bench_encoder, GST_TYPE_BIN)

BenchEncoder *self(gpointer object)
{
    return static_cast<BenchEncoder *>(object);
}

// The device's own level is too low for a camera's picture.
GstPadProbeReturn onCaps(GstPad *, GstPadProbeInfo *info, gpointer data)
{
    if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) != GST_EVENT_CAPS)
        return GST_PAD_PROBE_OK;
    g_autoptr(GstPad) pad = gst_element_get_static_pad(GST_ELEMENT(data), "src");
    g_autoptr(GstCaps) caps = gst_pad_get_allowed_caps(pad);
    if (caps && !gst_caps_is_empty(caps)
        && gst_structure_get_string(gst_caps_get_structure(caps, 0), "level"))
        return GST_PAD_PROBE_OK;
    GST_ELEMENT_ERROR(data, STREAM, FORMAT, ("The level is too low."), ("the bench was told none"));
    return GST_PAD_PROBE_DROP;
}

GstPadProbeReturn onFrame(GstPad *, GstPadProbeInfo *info, gpointer data)
{
    if (!controlSays("encoder", "fails"))
        return GST_PAD_PROBE_OK;
    GST_ELEMENT_ERROR(data, STREAM, ENCODE, ("Could not encode stream."),
                      ("the bench made the encoder fail"));
    gst_buffer_unref(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_PAD_PROBE_INFO_FLOW_RETURN(info) = GST_FLOW_ERROR;
    return GST_PAD_PROBE_HANDLED;
}

void takeControls(GObject *object, GParamSpec *)
{
    BenchEncoder *encoder = self(object);
    if (!G_IS_VALUE(&encoder->base.setting)) // another property changed
        return;
    const auto *controls =
        static_cast<const GstStructure *>(g_value_get_boxed(&encoder->base.setting));
    int number = 0;
    if (!controls || !encoder->x264)
        return;
    if (gst_structure_get_int(controls, "video_bitrate", &number))
        g_object_set(encoder->x264, "bitrate", number / bitsPerKilobit, nullptr);
    if (gst_structure_get_int(controls, "h264_i_frame_period", &number))
        g_object_set(encoder->x264, "key-int-max", number, nullptr);
}

void bench_encoder_class_init(BenchEncoderClass *type)
{
    describeStandIn(type,
                    g_param_spec_boxed("extra-controls", "Extra controls", "Controls of the device",
                                       GST_TYPE_STRUCTURE, G_PARAM_READWRITE),
                    {&sinkTemplate, &sourceTemplate}, "Bench encoder",
                    "Codec/Encoder/Video/Hardware", "H.264 encoder with the face of the kernel's");
    G_OBJECT_CLASS(type)->notify = takeControls;
}

void bench_encoder_init(BenchEncoder *encoder)
{
    GstBin *bin = GST_BIN(encoder);
    GstElement *input = addElement(bin, "capsfilter");
    encoder->x264 = addElement(bin, "x264enc");
    GstElement *output = addElement(bin, "capsfilter");
    if (!encoder->x264)
        return;
    gst_util_set_object_arg(G_OBJECT(input), "caps", "video/x-raw,format={I420,NV12}");
    gst_util_set_object_arg(G_OBJECT(encoder->x264), "tune", "zerolatency");
    gst_util_set_object_arg(G_OBJECT(encoder->x264), "speed-preset", "ultrafast");
    gst_util_set_object_arg(G_OBJECT(output), "caps", "video/x-h264,stream-format=byte-stream");
    gst_element_link_many(input, encoder->x264, output, nullptr);
    addGhostPad(GST_ELEMENT(encoder), "sink", input);
    addGhostPad(GST_ELEMENT(encoder), "src", output);

    GstPad *frames = gst_element_get_static_pad(encoder->x264, "sink");
    gst_pad_add_probe(frames, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, onCaps, encoder, nullptr);
    gst_pad_add_probe(frames, GST_PAD_PROBE_TYPE_BUFFER, onFrame, encoder, nullptr);
    gst_object_unref(frames);
}

} // namespace

STANDIN_PLUGIN(benchencoder, "v4l2h264enc", bench_encoder_get_type(),
               "Stand-in for the kernel's encoder")
