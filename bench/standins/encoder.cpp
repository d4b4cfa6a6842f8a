// Stands in for the compute module's hardware encoder: an element omxh264enc around x264enc,
// with the hardware's properties, taking the raw formats that the hardware takes and no
// others, and repeating its stream headers at every key frame. When /run/bench/encoder says
// "fails", it fails with the next frame.

#include "control.h"

#include <gst/gst.h>

namespace
{

constexpr int framesPerKeyFrame = 25; // a receiver that joins late waits a second
constexpr unsigned bitsPerKilobit = 1000;

struct BenchEncoder {
    GstBin bin;
    GstElement *x264;
    GstElement *output; // filters what leaves by "caps"
    unsigned targetBitrate;
    int controlRate; // taken and held, x264 has its own way
};

struct BenchEncoderClass {
    GstBinClass parent;
};

enum { PropertyTargetBitrate = 1, PropertyControlRate, PropertyBFrames, PropertyCaps };

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

void setProperty(GObject *object, guint id, const GValue *value, GParamSpec *)
{
    BenchEncoder *encoder = self(object);
    switch (id) {
    case PropertyTargetBitrate:
        encoder->targetBitrate = g_value_get_uint(value);
        g_object_set(encoder->x264, "bitrate", encoder->targetBitrate / bitsPerKilobit, nullptr);
        break;
    case PropertyControlRate:
        encoder->controlRate = g_value_get_int(value);
        break;
    case PropertyBFrames:
        g_object_set_property(G_OBJECT(encoder->x264), "bframes", value);
        break;
    case PropertyCaps:
        g_object_set_property(G_OBJECT(encoder->output), "caps", value);
        break;
    }
}

void getProperty(GObject *object, guint id, GValue *value, GParamSpec *)
{
    BenchEncoder *encoder = self(object);
    switch (id) {
    case PropertyTargetBitrate:
        g_value_set_uint(value, encoder->targetBitrate);
        break;
    case PropertyControlRate:
        g_value_set_int(value, encoder->controlRate);
        break;
    case PropertyBFrames:
        g_object_get_property(G_OBJECT(encoder->x264), "bframes", value);
        break;
    case PropertyCaps:
        g_object_get_property(G_OBJECT(encoder->output), "caps", value);
        break;
    }
}

void bench_encoder_class_init(BenchEncoderClass *type)
{
    GObjectClass *object = G_OBJECT_CLASS(type);
    object->set_property = setProperty;
    object->get_property = getProperty;
    g_object_class_install_property(object, PropertyTargetBitrate,
                                    g_param_spec_uint("target-bitrate", "Target bitrate",
                                                      "Bits per second", bitsPerKilobit, G_MAXUINT,
                                                      2048000, G_PARAM_READWRITE));
    g_object_class_install_property(object, PropertyControlRate,
                                    g_param_spec_int("control-rate", "Control rate",
                                                     "Bitrate control: 1 variable, 2 constant", 0,
                                                     4, 0, G_PARAM_READWRITE));
    g_object_class_install_property(object, PropertyBFrames,
                                    g_param_spec_uint("b-frames", "B frames",
                                                      "B frames between I and P frames", 0, 16, 0,
                                                      G_PARAM_READWRITE));
    g_object_class_install_property(object, PropertyCaps,
                                    g_param_spec_boxed("caps", "Caps", "What the stream must be",
                                                       GST_TYPE_CAPS, G_PARAM_READWRITE));

    GstElementClass *element = GST_ELEMENT_CLASS(type);
    gst_element_class_add_static_pad_template(element, &sinkTemplate);
    gst_element_class_add_static_pad_template(element, &sourceTemplate);
    gst_element_class_set_static_metadata(element, "Bench encoder", "Codec/Encoder/Video/Hardware",
                                          "H.264 encoder with a hardware encoder's face",
                                          "the bench");
}

void bench_encoder_init(BenchEncoder *encoder)
{
    GstBin *bin = GST_BIN(encoder);
    GstElement *input = addElement(bin, "capsfilter");
    GstElement *format = addElement(bin, "capsfilter");
    encoder->x264 = addElement(bin, "x264enc");
    encoder->output = addElement(bin, "capsfilter");
    if (!encoder->x264)
        return;
    gst_util_set_object_arg(G_OBJECT(input), "caps", "video/x-raw,format={I420,NV12}");
    gst_util_set_object_arg(G_OBJECT(encoder->x264), "tune", "zerolatency");
    gst_util_set_object_arg(G_OBJECT(encoder->x264), "speed-preset", "ultrafast");
    g_object_set(encoder->x264, "key-int-max", framesPerKeyFrame, nullptr);
    gst_util_set_object_arg(G_OBJECT(format), "caps", "video/x-h264,stream-format=byte-stream");
    gst_element_link_many(input, encoder->x264, format, encoder->output, nullptr);
    addGhostPad(GST_ELEMENT(encoder), "sink", input);
    addGhostPad(GST_ELEMENT(encoder), "src", encoder->output);

    GstPad *frames = gst_element_get_static_pad(encoder->x264, "sink");
    gst_pad_add_probe(frames, GST_PAD_PROBE_TYPE_BUFFER, onFrame, encoder, nullptr);
    gst_object_unref(frames);
}

gboolean registerElements(GstPlugin *plugin)
{
    return gst_element_register(plugin, "omxh264enc", GST_RANK_PRIMARY, bench_encoder_get_type());
}

} // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, benchencoder,
                  "Stand-in for a hardware encoder", registerElements, GSTREAMER_VERSION,
                  "Proprietary", PACKAGE, "https://localhost/")
