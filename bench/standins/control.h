// SPDX-License-Identifier: LicenseRef-KT6120
#pragma once

#include <gst/gst.h>

#include <fstream>
#include <string>

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
