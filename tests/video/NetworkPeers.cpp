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

CTsSender::CTsSender(const std::string& file, int port)
    : m_Data(ReadFile(file)), m_Port(port),
      m_Thread([this](const std::atomic<bool>& stop) { Send(stop); }) {}

void CTsSender::Send(const std::atomic<bool>& stop) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in to = Loopback(m_Port);
    while (!stop) {
        for (std::size_t at = 0; at + kChunk <= m_Data.size() && !stop; at += kChunk) {
            sendto(fd, m_Data.data() + at, kChunk, 0, reinterpret_cast<const sockaddr*>(&to),
                   sizeof(to));
            // A camera's pace, roughly: the whole 2 s clip in about 0.2 s, so nothing overflows
            // the receiver's socket buffer.
            std::this_thread::sleep_for(std::chrono::microseconds(2000));
        }
    }
    close(fd);
}

// CSilentServer

CSilentServer::CSilentServer()
    : m_Listener([](int connection, const std::atomic<bool>& stop) {
          while (!stop) {
              Readable(connection); // holds the connection open, silent
          }
      }) {}

} // namespace zortest
