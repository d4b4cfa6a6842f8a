// SPDX-License-Identifier: LicenseRef-KT6120
#include "source.h"

#include "ports.h"

#include <chrono>
#include <gst/app/gstappsink.h>
#include <gst/net/gstnetaddressmeta.h>
#include <stdexcept>
#include <utility>

using std::chrono::steady_clock;

namespace
{

constexpr char elements[] =
    "funnel name=streams ! rtph264depay ! video/x-h264,stream-format=byte-stream,alignment=au "
    "! h264parse config-interval=-1 ! appsink name=frames sync=false async=false "
    "udpsrc name=pal address=127.0.0.1 ! streams. "
    "udpsrc name=usb ! streams. "
    "udpsrc name=ethernet ! streams.";
// The kernel also delivers the broadcasts to a phone to the sender's own machine.
constexpr std::pair<const char *, const char *> receivers[] = {
    {"pal", ports::palCopy}, {"usb", ports::usbStream}, {"ethernet", ports::ethernetStream}};
constexpr char packets[] =
    "application/x-rtp,media=video,encoding-name=H264,clock-rate=90000,payload=96";

constexpr std::chrono::seconds recheck(1); // addresses come and go

// Whether the address is the first one of an interface of the unit, as that of the unit's packets:
// then a socket that is connected to it has it as its own address too. Not so with 0.0.0.0 and
// broadcast addresses, which the kernel accepts as senders and for bind().
bool isOwn(GInetAddress *address)
{
    constexpr guint16 anyPort = 1; // connect() sends nothing
    g_autoptr(GSocketAddress) there = g_inet_socket_address_new(address, anyPort);
    g_autoptr(GSocket) socket = g_socket_new(
        g_inet_address_get_family(address), G_SOCKET_TYPE_DATAGRAM, G_SOCKET_PROTOCOL_UDP, nullptr);
    if (!socket || !g_socket_connect(socket, there, nullptr, nullptr))
        return false;
    g_autoptr(GSocketAddress) found = g_socket_get_local_address(socket, nullptr);
    auto *here = G_INET_SOCKET_ADDRESS(found);
    return here && g_inet_address_equal(address, g_inet_socket_address_get_address(here));
}

// Others on the network can send to these ports too, but not from the unit's address: the kernel
// drops such packets.
struct Gate {
    GInetAddress *address = nullptr; // of the last sender
    bool own = false;
    steady_clock::time_point checked;

    ~Gate() { g_clear_object(&address); }

    bool passes(GstBuffer *packet)
    {
        const GstNetAddressMeta *meta = gst_buffer_get_net_address_meta(packet);
        if (!meta || !G_IS_INET_SOCKET_ADDRESS(meta->addr))
            return false;
        GInetAddress *sender = g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(meta->addr));
        const auto now = steady_clock::now();
        if (!address || now - checked > recheck || !g_inet_address_equal(sender, address)) {
            g_set_object(&address, sender);
            own = isOwn(sender);
            checked = now;
        }
        return own;
    }
};

GstPadProbeReturn onPacket(GstPad *, GstPadProbeInfo *info, gpointer gate)
{
    return static_cast<Gate *>(gate)->passes(GST_PAD_PROBE_INFO_BUFFER(info)) ? GST_PAD_PROBE_OK
                                                                              : GST_PAD_PROBE_DROP;
}

GstFlowReturn onFrame(GstAppSink *sink, gpointer taker)
{
    g_autoptr(GstSample) sample = gst_app_sink_pull_sample(sink);
    if (!sample)
        return GST_FLOW_EOS;
    (*static_cast<Source::Taker *>(taker))(gst_sample_get_buffer(sample));
    return GST_FLOW_OK;
}

} // namespace

Element launch(const char *line)
{
    g_autoptr(GError) error = nullptr;
    Element built(gst_parse_launch(line, &error));
    if (built)
        gst_object_ref_sink(built.get());
    if (error)
        throw std::runtime_error(error->message);
    return built;
}

Element find(const Element &bin, const char *name)
{
    return Element(gst_bin_get_by_name(GST_BIN(bin.get()), name));
}

bool hasFailed(const Element &pipeline)
{
    g_autoptr(GstBus) bus = gst_element_get_bus(pipeline.get());
    g_autoptr(GstMessage) message =
        gst_bus_pop_filtered(bus, GstMessageType(GST_MESSAGE_ERROR | GST_MESSAGE_EOS));
    if (message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        g_autoptr(GError) error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        g_printerr("kt6120-picture: %s: %s\n", GST_OBJECT_NAME(message->src), error->message);
    }
    return message != nullptr;
}

Source::Source(Taker taker) : take(std::move(taker))
{
    start();
}

Source::~Source()
{
    stop();
}

void Source::start()
{
    pipeline = launch(elements);
    g_autoptr(GstCaps) caps = gst_caps_from_string(packets);
    for (const auto &[name, port] : receivers) {
        const Element receiver = find(pipeline, name);
        gst_util_set_object_arg(G_OBJECT(receiver.get()), "port", port);
        g_object_set(receiver.get(), "caps", caps, nullptr);
        g_autoptr(GstPad) pad = gst_element_get_static_pad(receiver.get(), "src");
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, onPacket, new Gate,
                          [](gpointer gate) { delete static_cast<Gate *>(gate); });
    }
    const Element frames = find(pipeline, "frames");
    GstAppSinkCallbacks callbacks = {};
    callbacks.new_sample = onFrame;
    gst_app_sink_set_callbacks(GST_APP_SINK(frames.get()), &callbacks, &take, nullptr);
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
}

void Source::stop()
{
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
}

void Source::look()
{
    if (!hasFailed(pipeline))
        return;
    stop();
    start();
}
