// SPDX-License-Identifier: LicenseRef-KT6120

// Element omxh264enc for systems that lack the board's. Wraps the kernel's encoder (v4l2h264enc)
// or, if there is none, x264enc. It has those properties of the board's element that the pipelines
// set, accepts only the raw formats that the hardware accepts, and repeats the stream headers at
// every key frame.

#include <gst/gst.h>

#include <algorithm>

namespace
{

constexpr int framesPerKeyFrame = 25; // a late receiver waits at most a second
constexpr unsigned bitsPerKilobit = 1000;
// For 720 x 576 at 25 frames a second. The kernel encoder's default level may be too low for this
// size, and then encoding fails, so the level is always set.
constexpr char level[] = "3";

// The values of control-rate that have a counterpart in the kernel's video_bitrate_mode.
constexpr int controlRateVariable = 1;
constexpr int controlRateConstant = 2;

struct Encoder {
    GstBin bin;
    GstElement *inner;
    GstElement *output; // capsfilter at the output
    gboolean isKernels; // whether inner is the kernel's encoder
    guint targetBitrate;
    gint controlRate;
    guint bFrames;
    GstCaps *caps;
};

struct EncoderClass {
    GstBinClass parent;
};

enum Property { PropertyTargetBitrate = 1, PropertyControlRate, PropertyBFrames, PropertyCaps };

GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw,format={I420,NV12}"));
GstStaticPadTemplate sourceTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("video/x-h264,stream-format=byte-stream,alignment=au"));

G_DEFINE_TYPE(Encoder, encoder, GST_TYPE_BIN)

Encoder *self(gpointer object)
{
    return reinterpret_cast<Encoder *>(object);
}

// v4l2h264enc ignores controls that the driver lacks.
void controlKernels(Encoder *encoder)
{
    const int bitrate = int(std::min(encoder->targetBitrate, guint(G_MAXINT)));
    g_autoptr(GstStructure) controls =
        gst_structure_new("controls", "video_bitrate", G_TYPE_INT, bitrate, "video_b_frames",
                          G_TYPE_INT, int(encoder->bFrames), "h264_i_frame_period", G_TYPE_INT,
                          framesPerKeyFrame, "repeat_sequence_header", G_TYPE_INT, 1, nullptr);
    if (encoder->controlRate == controlRateVariable || encoder->controlRate == controlRateConstant)
        gst_structure_set(controls, "video_bitrate_mode", G_TYPE_INT,
                          int(encoder->controlRate == controlRateConstant), nullptr);
    g_object_set(encoder->inner, "extra-controls", controls, nullptr);

    g_autoptr(GstCaps) caps =
        encoder->caps ? gst_caps_copy(encoder->caps) : gst_caps_new_empty_simple("video/x-h264");
    for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
        GstStructure *alternative = gst_caps_get_structure(caps, i);
        if (!gst_structure_has_field(alternative, "level"))
            gst_structure_set(alternative, "level", G_TYPE_STRING, level, nullptr);
    }
    g_object_set(encoder->output, "caps", caps, nullptr);
}

// x264enc has no counterpart of control-rate; its rate control is close enough to both modes.
void controlX264(Encoder *encoder)
{
    g_object_set(encoder->inner, "bitrate", encoder->targetBitrate / bitsPerKilobit, "bframes",
                 encoder->bFrames, nullptr);
    g_object_set(encoder->output, "caps", encoder->caps, nullptr);
}

void control(Encoder *encoder)
{
    if (encoder->inner)
        encoder->isKernels ? controlKernels(encoder) : controlX264(encoder);
}

void setProperty(GObject *object, guint id, const GValue *value, GParamSpec *)
{
    Encoder *encoder = self(object);
    switch (Property(id)) {
    case PropertyTargetBitrate:
        encoder->targetBitrate = g_value_get_uint(value);
        break;
    case PropertyControlRate:
        encoder->controlRate = g_value_get_int(value);
        break;
    case PropertyBFrames:
        encoder->bFrames = g_value_get_uint(value);
        break;
    case PropertyCaps:
        gst_caps_replace(&encoder->caps, const_cast<GstCaps *>(gst_value_get_caps(value)));
        break;
    }
    control(encoder);
}

void getProperty(GObject *object, guint id, GValue *value, GParamSpec *)
{
    const Encoder *encoder = self(object);
    switch (Property(id)) {
    case PropertyTargetBitrate:
        g_value_set_uint(value, encoder->targetBitrate);
        break;
    case PropertyControlRate:
        g_value_set_int(value, encoder->controlRate);
        break;
    case PropertyBFrames:
        g_value_set_uint(value, encoder->bFrames);
        break;
    case PropertyCaps:
        gst_value_set_caps(value, encoder->caps);
        break;
    }
}

void finalize(GObject *object)
{
    gst_clear_caps(&self(object)->caps);
    G_OBJECT_CLASS(encoder_parent_class)->finalize(object);
}

void encoder_class_init(EncoderClass *type)
{
    GObjectClass *object = G_OBJECT_CLASS(type);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    constexpr auto flags = GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
    constexpr auto fromStart = GParamFlags(flags | G_PARAM_CONSTRUCT);
    g_object_class_install_property(object, PropertyTargetBitrate,
                                    g_param_spec_uint("target-bitrate", "Target bitrate",
                                                      "Bits per second", bitsPerKilobit, G_MAXUINT,
                                                      2048000, fromStart));
    g_object_class_install_property(object, PropertyControlRate,
                                    g_param_spec_int("control-rate", "Control rate",
                                                     "Bitrate control: 1 variable, 2 constant", 0,
                                                     4, 0, fromStart));
    g_object_class_install_property(object, PropertyBFrames,
                                    g_param_spec_uint("b-frames", "B frames",
                                                      "B frames between I and P frames", 0, 16, 0,
                                                      fromStart));
    g_object_class_install_property(
        object, PropertyCaps,
        g_param_spec_boxed("caps", "Caps", "What the stream must be", GST_TYPE_CAPS, flags));

    GstElementClass *element = GST_ELEMENT_CLASS(type);
    gst_element_class_add_static_pad_template(element, &sinkTemplate);
    gst_element_class_add_static_pad_template(element, &sourceTemplate);
    gst_element_class_set_static_metadata(element, "H.264 encoder", "Codec/Encoder/Video",
                                          "H.264 by the kernel's encoder or x264enc",
                                          "The KT6120 team");
}

GstElement *add(Encoder *encoder, const char *factory)
{
    GstElement *element = gst_element_factory_make(factory, nullptr);
    if (element)
        gst_bin_add(GST_BIN(encoder), element);
    return element;
}

// Exposes a pad of an inner element as a ghost pad.
void addGhostPad(Encoder *encoder, const char *name, GstElement *inner)
{
    g_autoptr(GstPad) target = gst_element_get_static_pad(inner, name);
    GstElement *element = GST_ELEMENT(encoder);
    GstPadTemplate *pattern =
        gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(element), name);
    gst_element_add_pad(element, gst_ghost_pad_new_from_template(name, target, pattern));
}

void encoder_init(Encoder *encoder)
{
    encoder->inner = add(encoder, "v4l2h264enc");
    encoder->isKernels = encoder->inner != nullptr;
    if (!encoder->inner)
        encoder->inner = add(encoder, "x264enc");
    if (!encoder->inner) {
        g_critical("omxh264enc needs the GStreamer element v4l2h264enc or x264enc");
        return;
    }
    if (!encoder->isKernels) {
        gst_util_set_object_arg(G_OBJECT(encoder->inner), "tune", "zerolatency");
        gst_util_set_object_arg(G_OBJECT(encoder->inner), "speed-preset", "ultrafast");
        g_object_set(encoder->inner, "key-int-max", framesPerKeyFrame, nullptr);
    }

    GstElement *input = add(encoder, "capsfilter");
    GstElement *fields = add(encoder, "capssetter");
    GstElement *format = add(encoder, "capsfilter");
    encoder->output = add(encoder, "capsfilter");
    gst_util_set_object_arg(G_OBJECT(input), "caps", "video/x-raw,format={I420,NV12}");
    gst_util_set_object_arg(G_OBJECT(format), "caps", "video/x-h264,stream-format=byte-stream");
    // Like the board's element, encode interlaced pictures as whole frames: neither the kernel's
    // encoder nor the baseline profile supports fields.
    gst_util_set_object_arg(G_OBJECT(fields), "caps", "video/x-raw,interlace-mode=progressive");
    // The kernel's encoder accepts some colorimetries only, which a capssetter hides from what is
    // before it.
    GstElement *colors = add(encoder, "videoconvert");
    gst_element_link_many(input, fields, colors, encoder->inner, format, encoder->output, nullptr);
    addGhostPad(encoder, "sink", input);
    addGhostPad(encoder, "src", encoder->output);
}

gboolean registerElements(GstPlugin *plugin)
{
    return gst_element_register(plugin, "omxh264enc", GST_RANK_NONE, encoder_get_type());
}

} // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, kt6120,
                  "H.264 encoder for systems without the board's own", registerElements,
                  GSTREAMER_VERSION, "Proprietary", PACKAGE, "https://localhost/")
