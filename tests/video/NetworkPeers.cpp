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

} // namespace

int FreePort(bool udp) {
    int port = 0;
    close(BoundSocket(udp ? SOCK_DGRAM : SOCK_STREAM, &port));
    return port;
}

// CHttpServer

CHttpServer::CHttpServer(std::string file, long stallAfter)
    : m_File(std::move(file)), m_StallAfter(stallAfter) {
    m_Listener = BoundSocket(SOCK_STREAM, &m_Port);
    listen(m_Listener, 8);
    m_Thread = std::thread([this] { Serve(); });
}

CHttpServer::~CHttpServer() {
    m_Stop = true;
    m_Thread.join();
    close(m_Listener);
}

std::string CHttpServer::Url(const std::string& name) const {
    return "http://127.0.0.1:" + std::to_string(m_Port) + "/" + name;
}

void CHttpServer::Serve() {
    while (!m_Stop) {
        if (!Readable(m_Listener)) {
            continue;
        }
        const int connection = accept(m_Listener, nullptr, nullptr);
        if (connection >= 0) {
            Answer(connection);
            close(connection);
        }
    }
}

void CHttpServer::Answer(int connection) {
    std::string request;
    while (!m_Stop && request.find("\r\n\r\n") == std::string::npos) {
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
    while (m_StallAfter >= 0 && !m_Stop) {
        Readable(connection); // holds the connection open, silent
    }
}

// CTsSender

CTsSender::CTsSender(const std::string& file, int port, bool rtp)
    : m_Data(ReadFile(file)), m_Port(port), m_Rtp(rtp) {
    m_Thread = std::thread([this] { Send(); });
}

CTsSender::~CTsSender() {
    m_Stop = true;
    m_Thread.join();
}

void CTsSender::Send() {
    constexpr std::size_t kChunk = 7 * 188; // what fits an Ethernet frame
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in to = Loopback(m_Port);
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::vector<std::uint8_t> datagram;
    while (!m_Stop) {
        for (std::size_t at = 0; at + kChunk <= m_Data.size() && !m_Stop; at += kChunk) {
            datagram.clear();
            if (m_Rtp) {
                datagram = {0x80,
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
                ++sequence;
                timestamp += 900;
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

CRtspCamera::CRtspCamera(const std::string& file) : m_Data(ReadFile(file)) {
    m_Listener = BoundSocket(SOCK_STREAM, &m_Port);
    listen(m_Listener, 4);
    m_Thread = std::thread([this] { Serve(); });
}

CRtspCamera::~CRtspCamera() {
    m_Stop = true;
    m_Thread.join();
    close(m_Listener);
}

std::string CRtspCamera::Url() const {
    return "rtsp://127.0.0.1:" + std::to_string(m_Port) + "/cam";
}

void CRtspCamera::Serve() {
    while (!m_Stop) {
        if (!Readable(m_Listener)) {
            continue;
        }
        const int connection = accept(m_Listener, nullptr, nullptr);
        if (connection >= 0) {
            Session(connection);
            close(connection);
        }
    }
}

void CRtspCamera::Session(int connection) {
    std::string input;
    bool playing = false;
    std::size_t at = 0;
    std::uint16_t sequence = 0;
    std::vector<std::uint8_t> frame;
    while (!m_Stop) {
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
            } else if (request.rfind("SETUP", 0) == 0) {
                if (request.find("RTP/AVP/TCP") == std::string::npos) {
                    reply = "RTSP/1.0 461 Unsupported Transport\r\nCSeq: " + cseq + "\r\n\r\n";
                } else {
                    reply += "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n"
                             "Session: 5A4F52\r\n\r\n";
                }
            } else if (request.rfind("PLAY", 0) == 0) {
                reply += "Session: 5A4F52\r\n\r\n";
                playing = true;
            } else {
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
        constexpr std::size_t kChunk = 7 * 188;
        if (at + kChunk > m_Data.size()) {
            at = 0;
        }
        const std::size_t length = 12 + kChunk;
        const std::uint32_t timestamp = sequence * 900U;
        frame = {'$',
                 0,
                 static_cast<std::uint8_t>(length >> 8),
                 static_cast<std::uint8_t>(length),
                 0x80,
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
        frame.insert(frame.end(), m_Data.begin() + static_cast<long>(at),
                     m_Data.begin() + static_cast<long>(at + kChunk));
        at += kChunk;
        ++sequence;
        if (!SendAll(connection, reinterpret_cast<const char*>(frame.data()), frame.size())) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(2000));
    }
}

// CSilentServer

CSilentServer::CSilentServer() {
    m_Listener = BoundSocket(SOCK_STREAM, &m_Port);
    listen(m_Listener, 8);
    m_Thread = std::thread([this] {
        std::vector<int> held;
        while (!m_Stop) {
            if (Readable(m_Listener)) {
                held.push_back(accept(m_Listener, nullptr, nullptr));
            }
        }
        for (int connection : held) {
            close(connection);
        }
    });
}

CSilentServer::~CSilentServer() {
    m_Stop = true;
    m_Thread.join();
    close(m_Listener);
}

} // namespace zortest
