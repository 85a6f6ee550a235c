// Loopback peers for the media source's network tests: an HTTP server, a UDP or RTP sender of an
// MPEG-TS file, an RTSP camera and a TCP server that accepts and never answers. Each runs on a
// thread of its own from construction to destruction and only ever talks to 127.0.0.1.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace zortest {

// A free local port (UDP or TCP) as the system hands one out.
int FreePort(bool udp);

// Runs body on a thread until destroyed; body must return soon after its stop flag turns true.
// Peers declare it last so that it stops before anything the body uses goes.
class CPeerThread {
public:
    explicit CPeerThread(std::function<void(const std::atomic<bool>& stop)> body);
    ~CPeerThread();
    CPeerThread(const CPeerThread&) = delete;
    CPeerThread& operator=(const CPeerThread&) = delete;

private:
    std::atomic<bool> m_Stop{false};
    std::thread m_Thread;
};

// Listens on a free loopback port and hands each connection in turn to session, closing it after.
class CListener {
public:
    explicit CListener(std::function<void(int connection, const std::atomic<bool>& stop)> session);
    ~CListener();
    CListener(const CListener&) = delete;
    CListener& operator=(const CListener&) = delete;
    int Port() const { return m_Port; }

private:
    int m_Port = 0; // before m_Listener, which sets it
    int m_Listener;
    CPeerThread m_Thread;
};

// Serves one file over HTTP/1.0 to any number of requests, byte ranges included. After
// stallAfter bytes of a response it stops sending (the connection stays open), to test a stream
// that stops answering.
class CHttpServer {
public:
    explicit CHttpServer(std::string file, long stallAfter = -1);
    std::string Url(const std::string& name) const;

private:
    void Answer(int connection, const std::atomic<bool>& stop);

    std::string m_File;
    long m_StallAfter;
    CListener m_Listener;
};

// Sends an MPEG-TS file to 127.0.0.1:port in datagrams of seven TS packets, over and over until
// destroyed, as a camera streams; with rtp, each datagram behind an RTP header (payload type 33).
class CTsSender {
public:
    CTsSender(const std::string& file, int port, bool rtp);

private:
    void Send(const std::atomic<bool>& stop);

    std::string m_Data;
    int m_Port;
    bool m_Rtp;
    CPeerThread m_Thread;
};

// An RTSP camera on 127.0.0.1: answers OPTIONS, DESCRIBE (one MPEG-TS track over RTP), SETUP
// (RTP interleaved on the RTSP connection only) and PLAY, then streams an MPEG-TS file over and
// over on the connection until the client goes or the camera is destroyed.
class CRtspCamera {
public:
    explicit CRtspCamera(const std::string& file);
    std::string Url() const;

private:
    void Session(int connection, const std::atomic<bool>& stop);

    std::string m_Data;
    CListener m_Listener;
};

// Accepts TCP connections and never says a word.
class CSilentServer {
public:
    CSilentServer();
    int Port() const { return m_Listener.Port(); }

private:
    CListener m_Listener;
};

} // namespace zortest
