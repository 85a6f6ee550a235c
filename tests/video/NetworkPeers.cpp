#include "tests/video/NetworkPeers.h"

#include "tests/video/TestMedia.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

namespace zortest {

namespace {

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int BoundSocket(int type, int* port) {
    const int fd = socket(AF_INET, type, 0);
    const int yes = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    sockaddr_in address = Loopback(0);
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    socklen_t length = sizeof(address);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    *port = ntohs(address.sin_port);
    return fd;
}

int ListeningSocket(int* port) {
    const int fd = BoundSocket(SOCK_STREAM, port);
    listen(fd, 8);
    return fd;
}

// Waits up to 50 ms for fd to be readable; answers false when it is not (yet).
bool Readable(int fd) {
    pollfd entry{fd, POLLIN, 0};
    return poll(&entry, 1, 50) > 0;
}

bool SendAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t sent = send(fd, data, size, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

// Seven TS packets: what fits an Ethernet frame.
constexpr std::size_t kChunk = 7 * 188;

// An RTP header for MPEG-TS (payload type 33) at 90 kHz, a 100 Hz stream's pace.
void AppendRtpHeader(std::vector<std::uint8_t>& out, std::uint16_t sequence) {
    const std::uint32_t timestamp = sequence * 900U;
    const std::uint8_t header[12] = {0x80,
                                     33,
                                     static_cast<std::uint8_t>(sequence >> 8),
                                     static_cast<std::uint8_t>(sequence),
                                     static_cast<std::uint8_t>(timestamp >> 24),
                                     static_cast<std::uint8_t>(timestamp >> 16),
                                     static_cast<std::uint8_t>(timestamp >> 8),
                                     static_cast<std::uint8_t>(timestamp),
                                     0x5A,
                                     0x4F,
                                     0x52,
                                     0x31};
    out.insert(out.end(), header, header + sizeof(header));
}

} // namespace

int FreePort(bool udp) {
    int port = 0;
    close(BoundSocket(udp ? SOCK_DGRAM : SOCK_STREAM, &port));
    return port;
}

CPeerThread::CPeerThread(std::function<void(const std::atomic<bool>&)> body)
    : m_Thread([this, body = std::move(body)] { body(m_Stop); }) {}

CPeerThread::~CPeerThread() {
    m_Stop = true;
    m_Thread.join();
}

CListener::CListener(std::function<void(int, const std::atomic<bool>&)> session)
    : m_Listener(ListeningSocket(&m_Port)),
      m_Thread([this, session = std::move(session)](const std::atomic<bool>& stop) {
          while (!stop) {
              if (!Readable(m_Listener)) {
                  continue;
              }
              const int connection = accept(m_Listener, nullptr, nullptr);
              if (connection >= 0) {
                  session(connection, stop);
                  close(connection);
              }
          }
      }) {}

CListener::~CListener() {
    close(m_Listener);
}

// CHttpServer

CHttpServer::CHttpServer(std::string file, long stallAfter)
    : m_File(std::move(file)), m_StallAfter(stallAfter),
      m_Listener(
          [this](int connection, const std::atomic<bool>& stop) { Answer(connection, stop); }) {}

std::string CHttpServer::Url(const std::string& name) const {
    return "http://127.0.0.1:" + std::to_string(m_Listener.Port()) + "/" + name;
}

void CHttpServer::Answer(int connection, const std::atomic<bool>& stop) {
    std::string request;
    while (!stop && request.find("\r\n\r\n") == std::string::npos) {
        if (!Readable(connection)) {
            continue;
        }
        char buffer[1024];
        const ssize_t got = recv(connection, buffer, sizeof(buffer), 0);
        if (got <= 0) {
            return;
        }
        request.append(buffer, static_cast<std::size_t>(got));
    }
    const std::string body = ReadFile(m_File);
    std::size_t from = 0;
    const std::size_t range = request.find("Range: bytes=");
    if (range != std::string::npos) {
        from = std::stoul(request.substr(range + 13));
    }
    from = std::min(from, body.size());
    char header[256];
    std::snprintf(header, sizeof(header),
                  "HTTP/1.1 %s\r\nContent-Length: %zu\r\nContent-Range: bytes %zu-%zu/%zu\r\n"
                  "Accept-Ranges: bytes\r\nContent-Type: video/mp4\r\nConnection: close\r\n\r\n",
                  range != std::string::npos ? "206 Partial Content" : "200 OK", body.size() - from,
                  from, body.size() - 1, body.size());
    if (!SendAll(connection, header, std::strlen(header))) {
        return;
    }
    std::size_t size = body.size() - from;
    if (m_StallAfter >= 0) {
        size = std::min(size, static_cast<std::size_t>(m_StallAfter));
    }
    SendAll(connection, body.data() + from, size);
    while (m_StallAfter >= 0 && !stop) {
        Readable(connection); // holds the connection open, silent
    }
}

// CTsSender

CTsSender::CTsSender(const std::string& file, int port, bool rtp)
    : m_Data(ReadFile(file)), m_Port(port), m_Rtp(rtp),
      m_Thread([this](const std::atomic<bool>& stop) { Send(stop); }) {}

void CTsSender::Send(const std::atomic<bool>& stop) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in to = Loopback(m_Port);
    std::uint16_t sequence = 0;
    std::vector<std::uint8_t> datagram;
    while (!stop) {
        for (std::size_t at = 0; at + kChunk <= m_Data.size() && !stop; at += kChunk) {
            datagram.clear();
            if (m_Rtp) {
                AppendRtpHeader(datagram, sequence++);
            }
            datagram.insert(datagram.end(), m_Data.begin() + static_cast<long>(at),
                            m_Data.begin() + static_cast<long>(at + kChunk));
            sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                   sizeof(to));
            // A camera's pace, roughly: the whole 2 s clip in about 0.2 s, so nothing overflows
            // the receiver's socket buffer.
            std::this_thread::sleep_for(std::chrono::microseconds(2000));
        }
    }
    close(fd);
}

// CRtspCamera

CRtspCamera::CRtspCamera(const std::string& file)
    : m_Data(ReadFile(file)), m_Listener([this](int connection, const std::atomic<bool>& stop) {
          Session(connection, stop);
      }) {}

std::string CRtspCamera::Url() const {
    return "rtsp://127.0.0.1:" + std::to_string(m_Listener.Port()) + "/cam";
}

void CRtspCamera::Session(int connection, const std::atomic<bool>& stop) {
    std::string input;
    bool playing = false;
    std::size_t at = 0;
    std::uint16_t sequence = 0;
    std::vector<std::uint8_t> frame;
    while (!stop) {
        // Requests, answered as they come; while playing, they only interrupt the stream.
        pollfd entry{connection, POLLIN, 0};
        if (poll(&entry, 1, playing ? 0 : 50) > 0) {
            char buffer[2048];
            const ssize_t got = recv(connection, buffer, sizeof(buffer), 0);
            if (got <= 0) {
                return;
            }
            input.append(buffer, static_cast<std::size_t>(got));
        }
        const std::size_t end = input.find("\r\n\r\n");
        if (end != std::string::npos) {
            const std::string request = input.substr(0, end);
            input.erase(0, end + 4);
            const std::size_t seq = request.find("CSeq: ");
            const std::string cseq =
                seq == std::string::npos
                    ? "0"
                    : request.substr(seq + 6, request.find("\r\n", seq) - seq - 6);
            std::string reply = "RTSP/1.0 200 OK\r\nCSeq: " + cseq + "\r\n";
            if (request.rfind("OPTIONS", 0) == 0) {
                reply += "Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN\r\n\r\n";
            } else if (request.rfind("DESCRIBE", 0) == 0) {
                const std::string sdp = "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=cam\r\n"
                                        "c=IN IP4 127.0.0.1\r\nt=0 0\r\nm=video 0 RTP/AVP 33\r\n"
                                        "a=rtpmap:33 MP2T/90000\r\na=control:track0\r\n";
                reply += "Content-Base: " + Url() +
                         "/\r\nContent-Type: application/sdp\r\n"
                         "Content-Length: " +
                         std::to_string(sdp.size()) + "\r\n\r\n" + sdp;
            } else if (request.rfind("SETUP", 0) == 0 &&
                       request.find("RTP/AVP/TCP") == std::string::npos) {
                reply = "RTSP/1.0 461 Unsupported Transport\r\nCSeq: " + cseq + "\r\n\r\n";
            } else if (request.rfind("SETUP", 0) == 0) {
                reply += "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n"
                         "Session: 5A4F52\r\n\r\n";
            } else {
                playing = playing || request.rfind("PLAY", 0) == 0;
                reply += "Session: 5A4F52\r\n\r\n";
            }
            if (!SendAll(connection, reply.data(), reply.size())) {
                return;
            }
            continue;
        }
        if (!playing) {
            continue;
        }
        // One RTP packet of seven TS packets, framed for the RTSP connection ('$', channel 0).
        if (at + kChunk > m_Data.size()) {
            at = 0;
        }
        constexpr std::size_t kLength = 12 + kChunk;
        frame = {'$', 0, static_cast<std::uint8_t>(kLength >> 8),
                 static_cast<std::uint8_t>(kLength)};
        AppendRtpHeader(frame, sequence++);
        frame.insert(frame.end(), m_Data.begin() + static_cast<long>(at),
                     m_Data.begin() + static_cast<long>(at + kChunk));
        at += kChunk;
        if (!SendAll(connection, reinterpret_cast<const char*>(frame.data()), frame.size())) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(2000));
    }
}

// CSilentServer

CSilentServer::CSilentServer()
    : m_Listener([](int connection, const std::atomic<bool>& stop) {
          while (!stop) {
              Readable(connection); // holds the connection open, silent
          }
      }) {}

} // namespace zortest
