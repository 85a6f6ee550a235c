// Loopback peers for the media source's network tests: an HTTP server, a UDP or RTP sender of an
// MPEG-TS file, and a TCP server that accepts and never answers. Each runs on a thread of its
// own from construction to destruction and only ever talks to 127.0.0.1.
#pragma once

#include <atomic>
#include <string>
#include <thread>

namespace zortest {

// A free local port (UDP or TCP) as the system hands one out.
int FreePort(bool udp);

// Serves one file over HTTP/1.0 to any number of requests, byte ranges included. After
// stallAfter bytes of a response it stops sending (the connection stays open), to test a stream
// that stops answering.
class CHttpServer {
public:
    explicit CHttpServer(std::string file, long stallAfter = -1);
    ~CHttpServer();
    CHttpServer(const CHttpServer&) = delete;
    CHttpServer& operator=(const CHttpServer&) = delete;
    std::string Url(const std::string& name) const;

private:
    void Serve();
    void Answer(int connection);

    std::string m_File;
    long m_StallAfter;
    int m_Listener = -1;
    int m_Port = 0;
    std::atomic<bool> m_Stop{false};
    std::thread m_Thread;
};

// Sends an MPEG-TS file to 127.0.0.1:port in datagrams of seven TS packets, over and over until
// destroyed, as a camera streams; with rtp, each datagram behind an RTP header (payload type 33).
class CTsSender {
public:
    CTsSender(const std::string& file, int port, bool rtp);
    ~CTsSender();
    CTsSender(const CTsSender&) = delete;
    CTsSender& operator=(const CTsSender&) = delete;

private:
    void Send();

    std::string m_Data;
    int m_Port;
    bool m_Rtp;
    std::atomic<bool> m_Stop{false};
    std::thread m_Thread;
};

// An RTSP camera on 127.0.0.1: answers OPTIONS, DESCRIBE (one MPEG-TS track over RTP), SETUP
// (RTP interleaved on the RTSP connection only) and PLAY, then streams an MPEG-TS file over and
// over on the connection until the client goes or the camera is destroyed.
class CRtspCamera {
public:
    explicit CRtspCamera(const std::string& file);
    ~CRtspCamera();
    CRtspCamera(const CRtspCamera&) = delete;
    CRtspCamera& operator=(const CRtspCamera&) = delete;
    std::string Url() const;

private:
    void Serve();
    void Session(int connection);

    std::string m_Data;
    int m_Listener = -1;
    int m_Port = 0;
    std::atomic<bool> m_Stop{false};
    std::thread m_Thread;
};

// Accepts TCP connections and never says a word.
class CSilentServer {
public:
    CSilentServer();
    ~CSilentServer();
    CSilentServer(const CSilentServer&) = delete;
    CSilentServer& operator=(const CSilentServer&) = delete;
    int Port() const { return m_Port; }

private:
    int m_Listener = -1;
    int m_Port = 0;
    std::atomic<bool> m_Stop{false};
    std::thread m_Thread;
};

} // namespace zortest
