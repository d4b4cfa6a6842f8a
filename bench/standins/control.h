// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <gst/gst.h>

#include <fstream>
#include <initializer_list>
#include <string>

// A stand-in is a bin that keeps the one property it has; it begins with one of these.
struct StandIn {
    GstBin bin;
    GValue setting;
};

inline void setSetting(GObject *object, guint, const GValue *value, GParamSpec *)
{
    GValue &setting = reinterpret_cast<StandIn *>(object)->setting;
    if (!G_IS_VALUE(&setting))
        g_value_init(&setting, G_VALUE_TYPE(value));
    g_value_copy(value, &setting);
}

inline void getSetting(GObject *object, guint, GValue *value, GParamSpec *)
{
    const GValue &setting = reinterpret_cast<StandIn *>(object)->setting;
    if (G_IS_VALUE(&setting))
        g_value_copy(&setting, value);
}

inline void dropSetting(GObject *object)
{
    g_value_unset(&reinterpret_cast<StandIn *>(object)->setting);
    G_OBJECT_CLASS(g_type_class_peek_parent(G_OBJECT_GET_CLASS(object)))->finalize(object);
}

// What the class of a stand-in has: its property, its pads, and what it is.
inline void describeStandIn(gpointer type, GParamSpec *property,
                            std::initializer_list<GstStaticPadTemplate *> pads, const char *name,
                            const char *kind, const char *text)
{
    GObjectClass *object = G_OBJECT_CLASS(type);
    object->set_property = setSetting;
    object->get_property = getSetting;
    object->finalize = dropSetting;
    g_object_class_install_property(object, 1, property);
    for (GstStaticPadTemplate *pad : pads)
        gst_element_class_add_static_pad_template(GST_ELEMENT_CLASS(type), pad);
    gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(type), name, kind, text, "the bench");
}

// The plug-in of that name, whose one element comes before the system's.
#define STANDIN_PLUGIN(plugin, element, type, text)                                                \
    GST_PLUGIN_DEFINE(                                                                             \
        GST_VERSION_MAJOR, GST_VERSION_MINOR, plugin, text,                                        \
        [](GstPlugin *made) {                                                                      \
            return gst_element_register(made, element, GST_RANK_PRIMARY, type);                    \
        },                                                                                         \
        GSTREAMER_VERSION, "Proprietary", PACKAGE, "https://localhost/")

// How a stand-in is told to misbehave: a word in a file of /run/bench, read anew each time.
inline bool controlSays(const char *file, const char *word)
{
    std::string said;
    std::ifstream(std::string("/run/bench/") + file) >> said;
    return said == word;
}

// Makes an element inside a stand-in's bin and names what is missing where it cannot.
inline GstElement *addElement(GstBin *bin, const char *factory)
{
    GstElement *element = gst_element_factory_make(factory, nullptr);
    if (element)
        gst_bin_add(bin, element);
    else
        g_critical("the bench needs the GStreamer element %s", factory);
    return element;
}

// Lets an element's pad be the bin's own.
inline void addGhostPad(GstElement *bin, const char *name, GstElement *inner)
{
    GstPad *target = gst_element_get_static_pad(inner, name);
    GstPadTemplate *pattern = gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(bin), name);
    gst_element_add_pad(bin, gst_ghost_pad_new_from_template(name, target, pattern));
    gst_object_unref(target);
}
