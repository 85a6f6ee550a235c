// "zortest": an ALSA PCM plugin that stands in for a sound card in the tests, which run on
// machines without one. alsa-lib loads it through a configuration that the tests write:
//
//     pcm_type.zortest { lib "/path/to/libasound_module_pcm_zortest.so" }
//     pcm.card { type zortest  infile "speech.wav"  rate_error 0.005  fail_after 1.5 }
//
// Capture gives the sample data of infile (a WAV file of the stream's format, silence after its
// end or without one); playback takes and discards. Like a card, the device runs on its own
// clock: CLOCK_MONOTONIC times (1 + rate_error), and wakes its poll descriptor once a period;
// frames that the application leaves too long are an overrun (capture) or underrun (playback).
// With `paced false` it never waits: capture always has a full buffer, playback takes
// everything at once. With fail_after, the device disappears after that many seconds of
// streaming: the stream reports an error and the device cannot be prepared again.
#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <vector>

namespace {

struct SDevice {
    snd_pcm_ioplug_t m_Io{};
    std::vector<unsigned char> m_Input; // capture data (the infile's samples)
    std::size_t m_InputPos = 0;
    bool m_Paced = true;
    double m_RateError = 0.0;
    double m_FailAfter = 0.0; // seconds of streaming; 0 = never
    double m_Streamed = 0.0;  // seconds streamed in earlier runs
    bool m_Gone = false;
    double m_StartTime = 0.0; // CLOCK_MONOTONIC at start (s)
    bool m_Running = false;
};

double Now() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

unsigned FrameBytes(const snd_pcm_ioplug_t* io) {
    return io->channels * static_cast<unsigned>(snd_pcm_format_physical_width(io->format)) / 8;
}

// Frames the device clock has run through since start.
snd_pcm_sframes_t Elapsed(const SDevice* d) {
    const double seconds = (Now() - d->m_StartTime) * (1.0 + d->m_RateError);
    return static_cast<snd_pcm_sframes_t>(seconds * d->m_Io.rate);
}

bool ReadWavData(const char* path, std::vector<unsigned char>& out) {
    std::FILE* f = std::fopen(path, "rb");
    if (!f) {
        return false;
    }
    unsigned char header[12];
    bool ok = std::fread(header, 1, 12, f) == 12 && std::memcmp(header, "RIFF", 4) == 0;
    while (ok) {
        unsigned char chunk[8];
        if (std::fread(chunk, 1, 8, f) != 8) {
            ok = false;
            break;
        }
        const std::uint32_t size = chunk[4] | (chunk[5] << 8) | (chunk[6] << 16) |
                                   (static_cast<std::uint32_t>(chunk[7]) << 24);
        if (std::memcmp(chunk, "data", 4) == 0) {
            out.resize(size);
            out.resize(std::fread(out.data(), 1, size, f));
            break;
        }
        ok = std::fseek(f, static_cast<long>(size) + (size & 1), SEEK_CUR) == 0;
    }
    std::fclose(f);
    return ok;
}

int Start(snd_pcm_ioplug_t* io) {
    auto* d = static_cast<SDevice*>(io->private_data);
    d->m_StartTime = Now();
    d->m_Running = true;
    if (d->m_Paced) {
        const double period =
            static_cast<double>(io->period_size) / (io->rate * (1.0 + d->m_RateError));
        itimerspec spec{};
        spec.it_interval.tv_sec = static_cast<time_t>(period);
        spec.it_interval.tv_nsec = static_cast<long>(std::fmod(period, 1.0) * 1e9);
        spec.it_value = spec.it_interval;
        timerfd_settime(io->poll_fd, 0, &spec, nullptr);
    }
    return 0;
}

int Stop(snd_pcm_ioplug_t* io) {
    auto* d = static_cast<SDevice*>(io->private_data);
    if (d->m_Running) {
        d->m_Streamed += Now() - d->m_StartTime;
        d->m_Running = false;
    }
    if (d->m_Paced) {
        const itimerspec off{};
        timerfd_settime(io->poll_fd, 0, &off, nullptr);
    }
    return 0;
}

snd_pcm_sframes_t Pointer(snd_pcm_ioplug_t* io) {
    auto* d = static_cast<SDevice*>(io->private_data);
    if (d->m_Gone || (d->m_FailAfter > 0 && d->m_Running &&
                      d->m_Streamed + Now() - d->m_StartTime >= d->m_FailAfter)) {
        d->m_Gone = true;
        return -ENODEV;
    }
    const auto appl = static_cast<snd_pcm_sframes_t>(io->appl_ptr);
    if (!d->m_Paced) {
        return io->stream == SND_PCM_STREAM_CAPTURE
                   ? appl + static_cast<snd_pcm_sframes_t>(io->buffer_size)
                   : appl;
    }
    if (!d->m_Running) {
        return static_cast<snd_pcm_sframes_t>(io->hw_ptr);
    }
    const snd_pcm_sframes_t elapsed = Elapsed(d);
    if (io->stream == SND_PCM_STREAM_CAPTURE) {
        return elapsed - appl > static_cast<snd_pcm_sframes_t>(io->buffer_size) ? -EPIPE : elapsed;
    }
    return elapsed > appl ? -EPIPE : elapsed;
}

snd_pcm_sframes_t Transfer(snd_pcm_ioplug_t* io, const snd_pcm_channel_area_t* areas,
                           snd_pcm_uframes_t offset, snd_pcm_uframes_t size) {
    auto* d = static_cast<SDevice*>(io->private_data);
    if (io->stream == SND_PCM_STREAM_PLAYBACK) {
        return static_cast<snd_pcm_sframes_t>(size);
    }
    const unsigned frame = FrameBytes(io);
    auto* out =
        static_cast<unsigned char*>(areas[0].addr) + (areas[0].first + areas[0].step * offset) / 8;
    const std::size_t bytes = size * frame;
    const std::size_t copy = std::min(bytes, d->m_Input.size() - d->m_InputPos);
    if (copy > 0) {
        std::memcpy(out, d->m_Input.data() + d->m_InputPos, copy);
        d->m_InputPos += copy;
    }
    std::memset(out + copy, io->format == SND_PCM_FORMAT_U8 ? 0x80 : 0, bytes - copy);
    return static_cast<snd_pcm_sframes_t>(size);
}

int Prepare(snd_pcm_ioplug_t* io) {
    auto* d = static_cast<SDevice*>(io->private_data);
    return d->m_Gone ? -ENODEV : 0;
}

int PollRevents(snd_pcm_ioplug_t* io, struct pollfd* pfd, unsigned int nfds,
                unsigned short* revents) {
    auto* d = static_cast<SDevice*>(io->private_data);
    *revents = 0;
    if (nfds < 1 || !(pfd[0].revents & POLLIN)) {
        return 0;
    }
    if (d->m_Paced) {
        std::uint64_t ticks = 0;
        (void)!read(io->poll_fd, &ticks, sizeof ticks); // clears the tick
    }
    *revents = io->stream == SND_PCM_STREAM_CAPTURE ? POLLIN : POLLOUT;
    return 0;
}

int Close(snd_pcm_ioplug_t* io) {
    auto* d = static_cast<SDevice*>(io->private_data);
    close(io->poll_fd);
    delete d;
    return 0;
}

const snd_pcm_ioplug_callback_t kCallbacks = [] {
    snd_pcm_ioplug_callback_t c{};
    c.start = Start;
    c.stop = Stop;
    c.pointer = Pointer;
    c.transfer = Transfer;
    c.close = Close;
    c.prepare = Prepare;
    c.poll_revents = PollRevents;
    return c;
}();

int SetConstraints(snd_pcm_ioplug_t* io) {
    static const unsigned accesses[] = {SND_PCM_ACCESS_RW_INTERLEAVED};
    static const unsigned formats[] = {SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_U8};
    int err = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_ACCESS, 1, accesses);
    if (err >= 0)
        err = snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_FORMAT, 2, formats);
    if (err >= 0)
        err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_CHANNELS, 1, 2);
    if (err >= 0)
        err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_RATE, 8000, 48000);
    if (err >= 0)
        err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_PERIOD_BYTES, 16, 65536);
    if (err >= 0)
        err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_PERIODS, 2, 1024);
    if (err >= 0)
        err = snd_pcm_ioplug_set_param_minmax(io, SND_PCM_IOPLUG_HW_BUFFER_BYTES, 64, 1 << 20);
    return err;
}

} // namespace

extern "C" {

SND_PCM_PLUGIN_DEFINE_FUNC(zortest) {
    (void)root;
    auto* d = new SDevice;
    const char* infile = nullptr;
    snd_config_iterator_t i;
    snd_config_iterator_t next;
    snd_config_for_each(i, next, conf) {
        snd_config_t* n = snd_config_iterator_entry(i);
        const char* id = nullptr;
        if (snd_config_get_id(n, &id) < 0)
            continue;
        if (std::strcmp(id, "comment") == 0 || std::strcmp(id, "type") == 0 ||
            std::strcmp(id, "hint") == 0)
            continue;
        int err = 0;
        if (std::strcmp(id, "infile") == 0) {
            err = snd_config_get_string(n, &infile);
        } else if (std::strcmp(id, "rate_error") == 0) {
            err = snd_config_get_ireal(n, &d->m_RateError);
        } else if (std::strcmp(id, "fail_after") == 0) {
            err = snd_config_get_ireal(n, &d->m_FailAfter);
        } else if (std::strcmp(id, "paced") == 0) {
            err = snd_config_get_bool(n);
            d->m_Paced = err > 0;
        } else {
            SNDERR("Unknown field %s", id);
            err = -EINVAL;
        }
        if (err < 0) {
            delete d;
            return -EINVAL;
        }
    }
    if (infile && !ReadWavData(infile, d->m_Input)) {
        SNDERR("cannot read %s", infile);
        delete d;
        return -ENOENT;
    }
    snd_pcm_ioplug_t* io = &d->m_Io;
    io->version = SND_PCM_IOPLUG_VERSION;
    io->name = "Zor test sound device";
    io->callback = &kCallbacks;
    io->private_data = d;
    io->flags = SND_PCM_IOPLUG_FLAG_BOUNDARY_WA | SND_PCM_IOPLUG_FLAG_MONOTONIC;
    io->poll_fd = d->m_Paced ? timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)
                             : eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC);
    io->poll_events = POLLIN;
    int err = snd_pcm_ioplug_create(io, name, stream, mode);
    if (err < 0) {
        close(io->poll_fd);
        delete d;
        return err;
    }
    err = SetConstraints(io);
    if (err < 0) {
        snd_pcm_ioplug_delete(io);
        return err;
    }
    *pcmp = io->pcm;
    return 0;
}

SND_PCM_PLUGIN_SYMBOL(zortest);
}
