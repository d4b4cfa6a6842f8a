// SPDX-License-Identifier: LicenseRef-KT6120
#include "viewer.h"

#include "ports.h"

#include <QList>
#include <QMap>
#include <QRandomGenerator>

#include <gst/app/gstappsrc.h>
#include <gst/sdp/gstsdpmessage.h>
#define GST_USE_UNSTABLE_API
#include <gst/webrtc/webrtc.h>

using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace
{

// The RTP time is that of the arrival, so it runs on when the picture comes from another stream.
constexpr char elements[] = "appsrc name=frames is-live=true format=time do-timestamp=true "
                            "leaky-type=downstream max-buffers=25 max-bytes=0 "
                            "caps=video/x-h264,stream-format=byte-stream,alignment=au "
                            "! rtph264pay name=payloader aggregate-mode=zero-latency "
                            "webrtcbin name=webrtc bundle-policy=max-bundle";

constexpr auto gatherLimit = 2s;  // the addresses are the machine's own
constexpr auto silenceLimit = 6s; // a browser reports once a second what it receives
constexpr auto connectLimit = 9s;

// Of a session description: "a=NAME:TYPE VALUE", for all types.
QMap<int, QByteArray> attributes(const QByteArray &lines, const QByteArray &name)
{
    QMap<int, QByteArray> found;
    for (const QByteArray &line : lines.split('\n')) {
        if (line.startsWith("a=" + name + ':'))
            found.insert(line.mid(name.size() + 3, line.indexOf(' ') - name.size() - 3).toInt(),
                         line.mid(line.indexOf(' ') + 1).trimmed());
    }
    return found;
}

// The browser's number for the H.264 that it decodes most easily; -1 without any. Packetization
// mode 1 splits a picture over packets.
int payloadType(const QByteArray &offer)
{
    constexpr const char *profiles[] = {"42e0", "42c0", "4200", ""}; // the best first
    const QMap<int, QByteArray> formats = attributes(offer, "rtpmap");
    const QMap<int, QByteArray> parameters = attributes(offer, "fmtp");
    for (const char *profile : profiles) {
        for (auto format = formats.cbegin(); format != formats.cend(); ++format) {
            const QByteArray wanted = parameters.value(format.key()).toLower();
            if (format.value().toUpper() == "H264/90000" && wanted.contains("packetization-mode=1")
                && wanted.contains(QByteArray("profile-level-id=") + profile))
                return format.key();
        }
    }
    return -1;
}

// The offer's only section, which must be of video; null if it has another one. For each further
// one webrtcbin would start threads.
GstSDPMedia *onlyVideo(const GstSDPMessage *offer)
{
    if (gst_sdp_message_medias_len(offer) != 1)
        return nullptr;
    const GstSDPMedia *media = gst_sdp_message_get_media(offer, 0);
    const bool isVideo = qstrcmp(gst_sdp_media_get_media(media), "video") == 0;
    return isVideo ? const_cast<GstSDPMedia *>(media) : nullptr;
}

// Removes the browser's addresses: the browser opens the connection, so that the unit neither
// contacts nor looks up a host that an offer names.
void removeCandidates(GstSDPMedia *media)
{
    for (guint i = gst_sdp_media_attributes_len(media); i > 0; --i) {
        if (qstrcmp(gst_sdp_media_get_attribute(media, i - 1)->key, "candidate") == 0)
            gst_sdp_media_remove_attribute(media, i - 1);
    }
}

void waitFor(GstPromise *promise)
{
    gst_promise_wait(promise);
    const GstStructure *reply = gst_promise_get_reply(promise);
    if (reply && gst_structure_has_field(reply, "error"))
        throw Refusal(400, "not a usable offer");
}

void set(GstElement *webrtc, const char *which, GstWebRTCSessionDescription *description)
{
    g_autoptr(GstPromise) promise = gst_promise_new();
    g_signal_emit_by_name(webrtc, which, description, promise);
    waitFor(promise);
}

template <typename T>
T get(gconstpointer object, const char *property)
{
    T value = {};
    g_object_get(gpointer(object), property, &value, nullptr);
    return value;
}

// Applies the offer, creates the answer, and waits until it contains the unit's addresses.
void negotiate(GstElement *webrtc, GstSDPMessage *offer)
{
    g_autoptr(GstWebRTCSessionDescription) remote =
        gst_webrtc_session_description_new(GST_WEBRTC_SDP_TYPE_OFFER, offer);
    set(webrtc, "set-remote-description", remote);
    g_autoptr(GstPromise) created = gst_promise_new();
    g_signal_emit_by_name(webrtc, "create-answer", nullptr, created);
    waitFor(created);
    g_autoptr(GstWebRTCSessionDescription) local = nullptr;
    gst_structure_get(gst_promise_get_reply(created), "answer", GST_TYPE_WEBRTC_SESSION_DESCRIPTION,
                      &local, nullptr);
    if (!local)
        throw Refusal(400, "not a usable offer");
    set(webrtc, "set-local-description", local);
    const auto end = steady_clock::now() + gatherLimit;
    while (get<GstWebRTCICEGatheringState>(webrtc, "ice-gathering-state")
               != GST_WEBRTC_ICE_GATHERING_STATE_COMPLETE
           && steady_clock::now() < end)
        g_usleep(1000);
}

} // namespace

Viewer::Viewer(const QByteArray &offer, const QByteArray &address)
    : pipeline(launch(elements)), frames(find(pipeline, "frames")),
      webrtc(find(pipeline, "webrtc")), heard(steady_clock::now() + connectLimit - silenceLimit)
{
    try {
        connect(offer, address);
    } catch (...) {
        gst_element_set_state(pipeline.get(), GST_STATE_NULL);
        throw;
    }
}

Viewer::~Viewer()
{
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
}

void Viewer::connect(const QByteArray &offer, const QByteArray &address)
{
    g_autoptr(GstSDPMessage) message = nullptr;
    const bool readable = gst_sdp_message_new_from_text(offer.constData(), &message) == GST_SDP_OK;
    GstSDPMedia *media = readable ? onlyVideo(message) : nullptr;
    // If the section lacks one of these, webrtcbin takes it from the session, and aborts the
    // program if it is there twice.
    if (!media || !gst_sdp_media_get_attribute_val(media, "ice-ufrag")
        || !gst_sdp_media_get_attribute_val(media, "ice-pwd"))
        throw Refusal(400, "not an offer to receive only video");
    removeCandidates(media);
    const int type = payloadType(offer);
    if (type < 0)
        throw Refusal(406, "the browser cannot decode H.264, which the unit's picture is");
    if (address.startsWith("fe80:")) // without the interface's name no socket can be bound to it
        throw Refusal(500,
                      "not under a link-local address; open the page by the unit's IPv4 address");
    limitAddresses(address);
    addStream(type);
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    negotiate(webrtc.get(), g_steal_pointer(&message));
    describe(type, attributes(offer, "fmtp").value(type));
    listen();
}

void Viewer::limitAddresses(const QByteArray &address)
{
    g_autoptr(GObject) ice = get<GObject *>(webrtc.get(), "ice-agent");
    g_autoptr(GObject) agent = get<GObject *>(ice, "agent");
    g_object_set(ice, "min-rtp-port", ports::firstViewer, "max-rtp-port", ports::lastViewer,
                 nullptr);
    g_object_set(agent, "ice-tcp", FALSE, "upnp", FALSE, nullptr); // no port mapping in a router
    gboolean added = FALSE;
    if (!address.isEmpty())
        g_signal_emit_by_name(ice, "add-local-ip-address", address.constData(), &added);
}

// The codec preferences determine the format in the answer, and the stream's number (SSRC).
void Viewer::addStream(int type)
{
    const guint32 stream = QRandomGenerator::global()->generate();
    const Element payloader = find(pipeline, "payloader");
    g_object_set(payloader.get(), "pt", guint(type), "ssrc", stream, nullptr);
    g_autoptr(GstCaps) caps =
        gst_caps_new_simple("application/x-rtp", "media", G_TYPE_STRING, "video", "encoding-name",
                            G_TYPE_STRING, "H264", "clock-rate", G_TYPE_INT, 90000, "payload",
                            G_TYPE_INT, type, "ssrc", G_TYPE_UINT, stream, nullptr);
    GstElementClass *kind = GST_ELEMENT_GET_CLASS(webrtc.get());
    g_autoptr(GstPad) sink = gst_element_request_pad(
        webrtc.get(), gst_element_class_get_pad_template(kind, "sink_%u"), nullptr, caps);
    g_autoptr(GstPad) out = gst_element_get_static_pad(payloader.get(), "src");
    gst_pad_link(out, sink);
    g_autoptr(GObject) transceiver = get<GObject *>(sink, "transceiver");
    g_object_set(transceiver, "direction", GST_WEBRTC_RTP_TRANSCEIVER_DIRECTION_SENDONLY, "do-nack",
                 TRUE, "codec-preferences", caps, nullptr);
}

// webrtcbin leaves out the profile, so this inserts the browser's own parameters of the format.
void Viewer::describe(int type, const QByteArray &parameters)
{
    g_autoptr(GstWebRTCSessionDescription) local =
        get<GstWebRTCSessionDescription *>(webrtc.get(), "local-description");
    g_autofree char *lines = gst_sdp_message_as_text(local->sdp);
    const QByteArray format = "a=fmtp:" + QByteArray::number(type) + ' ';
    for (const QByteArray &line : QByteArray(lines).trimmed().split('\n'))
        description += (line.startsWith(format) ? format + parameters + '\r' : line) + '\n';
    if (!description.contains("a=candidate:"))
        throw Refusal(500, "no UDP port of the unit is free");
}

void Viewer::listen()
{
    g_autoptr(GstIterator) receivers =
        gst_bin_iterate_all_by_element_factory_name(GST_BIN(webrtc.get()), "nicesrc");
    GValue found = G_VALUE_INIT;
    while (gst_iterator_next(receivers, &found) == GST_ITERATOR_OK) {
        g_autoptr(GstPad) pad =
            gst_element_get_static_pad(GST_ELEMENT(g_value_get_object(&found)), "src");
        gst_pad_add_probe(
            pad, GstPadProbeType(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
            onHeard, this, nullptr);
        g_value_unset(&found);
    }
}

GstPadProbeReturn Viewer::onHeard(GstPad *, GstPadProbeInfo *, gpointer viewer)
{
    static_cast<Viewer *>(viewer)->heard = steady_clock::now();
    return GST_PAD_PROBE_OK;
}

void Viewer::show(GstBuffer *frame)
{
    begun = begun || !GST_BUFFER_FLAG_IS_SET(frame, GST_BUFFER_FLAG_DELTA_UNIT);
    if (!begun)
        return;
    GstBuffer *copy = gst_buffer_copy(frame); // shares the bytes
    GST_BUFFER_PTS(copy) = GST_BUFFER_DTS(copy) = GST_CLOCK_TIME_NONE;
    gst_app_src_push_buffer(GST_APP_SRC(frames.get()), copy);
}

bool Viewer::isGone() const
{
    const auto state = get<GstWebRTCPeerConnectionState>(webrtc.get(), "connection-state");
    return hasFailed(pipeline) || state == GST_WEBRTC_PEER_CONNECTION_STATE_FAILED
           || state == GST_WEBRTC_PEER_CONNECTION_STATE_CLOSED
           || steady_clock::now() - heard.load() > silenceLimit;
}
