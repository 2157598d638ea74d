// The PCM nodes: their ioctls, opening, polling.
#include <poll.h>
#include <sys/ioctl.h>

#include "kernel/ioctl_table.h"
#include "sound/sound_device.h"

static constexpr int kProtocol = SNDRV_PROTOCOL_VERSION(2, 0, 13);  // of a 4.9 kernel

static_assert(sizeof(snd_pcm_hw_params) == 608 && sizeof(snd_pcm_sw_params) == 136 && sizeof(snd_pcm_status) == 152 &&
              sizeof(snd_pcm_sync_ptr) == 136 && sizeof(snd_xferi) == 24 && sizeof(snd_pcm_info) == 288);

struct PcmCall {
    SoundStream& stream;
    const IoctlCall& ioctl;
};

// ---- About the device

static int GetProtocol(const PcmCall&, int& version) {
    version = kProtocol;
    return 0;
}

static int GetInfo(const PcmCall& call, snd_pcm_info& info) {
    info = {};
    DescribePcm(call.stream.card, call.stream, info);
    return 0;
}

// Every time stamp is of the monotonic clock, for which the ALSA library asks wherever there is one.
static int ChooseClock(const PcmCall&, int& clock) {
    return clock >= 0 && clock <= SNDRV_PCM_TSTAMP_TYPE_LAST ? 0 : -EINVAL;
}

// ---- Parameters

static int Refine(const PcmCall& call, snd_pcm_hw_params& params) { return RefineParams(call.stream.limits, params); }

static bool IsAtRest(const SoundStream& stream) {
    return stream.state == SNDRV_PCM_STATE_SETUP || stream.state == SNDRV_PCM_STATE_PREPARED;
}

static int SetParams(const PcmCall& call, snd_pcm_hw_params& params) {
    SoundStream& stream = call.stream;
    if (stream.state != SNDRV_PCM_STATE_OPEN && !IsAtRest(stream)) return -EBADFD;
    SoundFormat format;
    if (const int error = ChooseParams(stream.limits, params, format); error != 0) return error;
    return SetFormat(stream, format);
}

static int FreeParams(const PcmCall& call) {
    if (!IsAtRest(call.stream)) return -EBADFD;
    FreeFormat(call.stream);
    return 0;
}

static int SetSoftwareParams(const PcmCall& call, snd_pcm_sw_params& params) {
    SoundStream& stream = call.stream;
    if (stream.state == SNDRV_PCM_STATE_OPEN) return -EBADFD;
    if (params.avail_min == 0) return -EINVAL;
    stream.control->avail_min = params.avail_min;
    stream.startThreshold = params.start_threshold;
    stream.stopThreshold = params.stop_threshold;
    stream.silenceSize = params.silence_size;
    params.boundary = stream.boundary;
    Advance(stream);
    Wake(*stream.owner);
    return 0;
}

static int GetChannelInfo(const PcmCall& call, snd_pcm_channel_info& info) {
    const SoundStream& stream = call.stream;
    if (stream.state == SNDRV_PCM_STATE_OPEN) return -EBADFD;
    if (info.channel >= stream.format.channels) return -EINVAL;
    constexpr unsigned kBits = 8 * kSampleBytes;
    info = {.channel = info.channel, .first = info.channel * kBits, .step = stream.format.channels * kBits};
    return 0;
}

// ---- Where it is

// Brings the pointer up to date for the ioctls that are refused where it has no meaning.
static int Synchronise(SoundStream& stream) {
    Advance(stream);
    if (stream.state == SNDRV_PCM_STATE_XRUN) return -EPIPE;
    return stream.state == SNDRV_PCM_STATE_OPEN || stream.state == SNDRV_PCM_STATE_SETUP ? -EBADFD : 0;
}

static int SynchroniseHardware(const PcmCall& call) { return Synchronise(call.stream); }

static snd_pcm_sframes_t DelayOf(const SoundStream& stream) {
    const auto available = static_cast<snd_pcm_sframes_t>(AvailableFrames(stream));
    return stream.direction == kCapture ? available : snd_pcm_sframes_t{stream.format.bufferFrames} - available;
}

static int GetDelay(const PcmCall& call, snd_pcm_sframes_t& delay) {
    if (const int error = Synchronise(call.stream); error != 0) return error;
    delay = DelayOf(call.stream);
    return 0;
}

static timespec Stamp(int64_t microseconds) {
    return {.tv_sec = microseconds / 1'000'000, .tv_nsec = microseconds % 1'000'000 * 1000};
}

static int GetStatus(const PcmCall& call, snd_pcm_status& status) {
    SoundStream& stream = call.stream;
    Advance(stream);
    status = {.state = stream.state};
    if (stream.state == SNDRV_PCM_STATE_OPEN) return 0;
    status.trigger_tstamp = Stamp(stream.triggeredAt);
    status.tstamp = Stamp(NowMicroseconds());
    status.driver_tstamp = status.tstamp;
    status.appl_ptr = ApplicationPointer(stream);
    status.hw_ptr = stream.hardware;
    status.avail = status.avail_max = AvailableFrames(stream);
    status.delay = DelayOf(stream);
    const uint64_t rate = stream.format.rate;
    status.audio_tstamp = {.tv_sec = static_cast<time_t>(stream.hardware / rate),
                           .tv_nsec = static_cast<long>(stream.hardware % rate * 1'000'000'000 / rate)};
    return 0;
}

static int SynchronisePointers(const PcmCall& call, snd_pcm_sync_ptr& pointers) {
    SoundStream& stream = call.stream;
    const unsigned flags = pointers.flags;
    if (stream.state == SNDRV_PCM_STATE_OPEN) return -EBADFD;
    if ((flags & SNDRV_PCM_SYNC_PTR_HWSYNC) != 0) {
        if (const int error = Synchronise(stream); error != 0) return error;
    }
    if ((flags & SNDRV_PCM_SYNC_PTR_APPL) == 0) SetApplicationPointer(stream, pointers.c.control.appl_ptr);
    if ((flags & SNDRV_PCM_SYNC_PTR_AVAIL_MIN) == 0) stream.control->avail_min = pointers.c.control.avail_min;
    pointers.s.status = *stream.status;
    pointers.c.control = {.appl_ptr = ApplicationPointer(stream), .avail_min = stream.control->avail_min};
    return 0;
}

// ---- Operations

static int Prepare(const PcmCall& call) { return PrepareStream(call.stream); }
static int Start(const PcmCall& call) { return StartStream(call.stream); }
static int Drop(const PcmCall& call) { return DropStream(call.stream); }
static int Drain(const PcmCall& call) { return DrainStream(call.stream, call.ioctl.nonBlocking); }
static int NotSupported(const PcmCall&) { return -ENOSYS; }

// A program that found by itself that it was too late.
static int ReportXrun(const PcmCall& call) {
    if (call.stream.state == SNDRV_PCM_STATE_XRUN) return 0;
    if (call.stream.state != SNDRV_PCM_STATE_RUNNING) return -EBADFD;
    StopByXrun(call.stream);
    return 0;
}

// ---- Reading and writing

// Frames in one piece of the ring, from the program's pointer on.
static uint64_t MovePiece(const PcmCall& call, uint64_t address, uint64_t most) {
    SoundStream& stream = call.stream;
    const uint64_t pointer = ApplicationPointer(stream), at = pointer % stream.format.bufferFrames;
    const uint64_t frames = std::min(most, stream.format.bufferFrames - at);
    const size_t frameBytes = size_t{stream.format.channels} * kSampleBytes;
    uint8_t* here = stream.ring.data() + at * frameBytes;
    const TargetMemory& memory = call.ioctl.memory;
    const bool moved = stream.direction == kPlayback ? memory.Read(address, here, frames * frameBytes)
                                                     : memory.Write(address, here, frames * frameBytes);
    if (!moved) return 0;
    SetApplicationPointer(stream, pointer + frames);
    return frames;
}

// What there is room or sound for now: 0 or an error.
static int MoveAvailable(const PcmCall& call, Transfer& transfer) {
    SoundStream& stream = call.stream;
    const uint64_t frameBytes = uint64_t{stream.format.channels} * kSampleBytes;
    while (transfer.moved < transfer.frames) {
        const uint64_t most = std::min(transfer.frames - transfer.moved, AvailableFrames(stream));
        if (most == 0) break;
        const uint64_t moved = MovePiece(call, transfer.address + transfer.moved * frameBytes, most);
        if (moved == 0) return -EFAULT;
        transfer.moved += moved;
        const bool full = stream.format.bufferFrames - AvailableFrames(stream) >= stream.startThreshold;
        if (stream.direction == kPlayback && stream.state == SNDRV_PCM_STATE_PREPARED && full) StartStream(stream);
    }
    return 0;
}

// The kernel wakes a waiting program only for as much as it asked to be woken for.
static bool IsWorthWaking(const SoundStream& stream, const Transfer& transfer) {
    const uint64_t wanted = std::max<uint64_t>(stream.control->avail_min, 1);
    return AvailableFrames(stream) >= std::min(wanted, transfer.frames - transfer.moved);
}

// The transfer that this call began before it was put to sleep, or a new one.
static bool Resumes(const PcmCall& call, const snd_xferi& wish) {
    const Transfer& transfer = call.stream.transfer;
    return transfer.thread == call.ioctl.memory.process && transfer.frames == wish.frames &&
           transfer.address == reinterpret_cast<uint64_t>(wish.buf);
}

static int EndTransfer(SoundStream& stream, snd_xferi& wish, int error) {
    wish.result = static_cast<snd_pcm_sframes_t>(stream.transfer.moved);
    stream.transfer = {};
    return wish.result > 0 ? 0 : error;
}

static int Move(const PcmCall& call, snd_xferi& wish) {
    SoundStream& stream = call.stream;
    if (stream.state == SNDRV_PCM_STATE_OPEN) return -EBADFD;
    const bool resumes = Resumes(call, wish);
    Transfer& transfer = stream.transfer;
    if (!resumes)
        transfer = {.thread = call.ioctl.memory.process,
                    .address = reinterpret_cast<uint64_t>(wish.buf),
                    .frames = wish.frames};
    Advance(stream);
    if (const int error = AccessError(stream); error != 0) return EndTransfer(stream, wish, error);
    if (stream.direction == kCapture && stream.state == SNDRV_PCM_STATE_PREPARED &&
        wish.frames >= stream.startThreshold)
        StartStream(stream);
    if (resumes && !IsWorthWaking(stream, transfer)) return kHold;
    if (const int error = MoveAvailable(call, transfer); error != 0) return EndTransfer(stream, wish, error);
    if (transfer.moved == transfer.frames) return EndTransfer(stream, wish, 0);
    if (stream.state == SNDRV_PCM_STATE_DRAINING) {  // nothing more will be captured
        stream.state = SNDRV_PCM_STATE_SETUP;
        return EndTransfer(stream, wish, 0);
    }
    return call.ioctl.nonBlocking ? EndTransfer(stream, wish, -EAGAIN) : kHold;
}

static int ReadFrames(const PcmCall& call, snd_xferi& wish) {
    return call.stream.direction == kCapture ? Move(call, wish) : -EINVAL;
}

static int WriteFrames(const PcmCall& call, snd_xferi& wish) {
    return call.stream.direction == kPlayback ? Move(call, wish) : -EINVAL;
}

// ---- The table

static constexpr std::array kIoctls = {
    Row<WriteFrames>(SNDRV_PCM_IOCTL_WRITEI_FRAMES),
    Row<ReadFrames>(SNDRV_PCM_IOCTL_READI_FRAMES),
    Row<SynchroniseHardware>(SNDRV_PCM_IOCTL_HWSYNC),
    Row<SynchronisePointers>(SNDRV_PCM_IOCTL_SYNC_PTR),
    Row<GetDelay>(SNDRV_PCM_IOCTL_DELAY),
    Row<GetStatus>(SNDRV_PCM_IOCTL_STATUS),
    Row<GetStatus>(SNDRV_PCM_IOCTL_STATUS_EXT),
    Row<GetProtocol>(SNDRV_PCM_IOCTL_PVERSION),
    Row<GetInfo>(SNDRV_PCM_IOCTL_INFO),
    Row<ChooseClock>(SNDRV_PCM_IOCTL_TTSTAMP),
    Row<Refine>(SNDRV_PCM_IOCTL_HW_REFINE),
    Row<SetParams>(SNDRV_PCM_IOCTL_HW_PARAMS),
    Row<FreeParams>(SNDRV_PCM_IOCTL_HW_FREE),
    Row<SetSoftwareParams>(SNDRV_PCM_IOCTL_SW_PARAMS),
    Row<GetChannelInfo>(SNDRV_PCM_IOCTL_CHANNEL_INFO),
    Row<Prepare>(SNDRV_PCM_IOCTL_PREPARE),
    Row<Start>(SNDRV_PCM_IOCTL_START),
    Row<Drop>(SNDRV_PCM_IOCTL_DROP),
    Row<Drain>(SNDRV_PCM_IOCTL_DRAIN),
    Row<ReportXrun>(SNDRV_PCM_IOCTL_XRUN),
    Row<NotSupported>(SNDRV_PCM_IOCTL_PAUSE),
    Row<NotSupported>(SNDRV_PCM_IOCTL_RESUME),
};

// ---- Files

static SoundSession& SessionOf(const OpenFile& file) { return *static_cast<SoundSession*>(file.state); }

static int OpenPcm(OpenFile& file) {
    const auto unit = static_cast<unsigned>(file.unit);
    const std::shared_ptr<SoundCard> card = SoundCards[unit / 2];
    if (!card) return -ENODEV;
    SoundStream& stream = *card->streams[unit % 2];
    if (stream.owner != nullptr || SoundPlaces[card->traits.place].busy) return -EBUSY;
    if (const int error = OpenStream(stream, file); error != 0) return error;
    file.state = new SoundSession{.card = card, .stream = &stream};
    return 0;
}

static int IoctlPcm(const IoctlCall& ioctl) {
    const SoundSession& session = SessionOf(ioctl.file);
    if (session.card->gone) return -ENODEV;
    return AnswerIoctl(kIoctls, PcmCall{.stream = *session.stream, .ioctl = ioctl});
}

static unsigned ReadyPcm(const OpenFile& file) {
    const SoundSession& session = SessionOf(file);
    const SoundStream& stream = *session.stream;
    const unsigned ok = stream.direction == kPlayback ? POLLOUT | POLLWRNORM : POLLIN | POLLRDNORM;
    if (session.card->gone) return POLLERR | POLLNVAL;
    if (stream.state == SNDRV_PCM_STATE_RUNNING || stream.state == SNDRV_PCM_STATE_PREPARED)
        return AvailableFrames(stream) >= stream.control->avail_min ? ok : 0;
    if (stream.state == SNDRV_PCM_STATE_DRAINING && stream.direction == kPlayback) return 0;
    if (stream.state == SNDRV_PCM_STATE_DRAINING && AvailableFrames(stream) > 0) return ok;
    return ok | POLLERR;
}

static void ClosePcm(OpenFile& file) {
    SoundSession* session = &SessionOf(file);
    CloseStream(*session->stream);
    delete session;
    file.state = nullptr;
}

const DeviceModel kSoundPcmModel = {
    .name = "sound stream", .open = OpenPcm, .ioctl = IoctlPcm, .ready = ReadyPcm, .close = ClosePcm};
