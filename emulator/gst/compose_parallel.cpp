#include "gst/compose_parallel.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

static constexpr int kBandRows = 60;  // few rows are scaled twice at the seams, and nobody waits long for the last band
static constexpr unsigned kHelperLimit = 3;

// A canvas to paint. A helper that comes late finds no band left and touches nothing but this.
struct PaintJob {
    Scene scene;
    Canvas canvas;
    int bands;
    std::atomic<int> next = 0, painted = 0;
};

struct Painters {
    std::vector<std::thread> helpers;
    std::mutex lock;  // over what follows
    std::condition_variable wake;
    std::shared_ptr<PaintJob> job;
    bool ended = false;
};

static void PaintBands(PaintJob& job) {
    for (int band; (band = job.next.fetch_add(1)) < job.bands;) {
        const int top = band * kBandRows;
        PaintBand(job.scene, job.canvas, top, std::min(top + kBandRows, job.canvas.height));
        if (job.painted.fetch_add(1) + 1 == job.bands) job.painted.notify_all();
    }
}

static void Help(Painters& painters) {
    pthread_setname_np(pthread_self(), "painter");  // else it would go by the name of whoever started it
    std::shared_ptr<PaintJob> job;
    for (;;) {
        std::unique_lock guard(painters.lock);
        painters.wake.wait(guard, [&] { return painters.ended || painters.job != job; });
        if (painters.ended) return;
        job = painters.job;
        guard.unlock();
        PaintBands(*job);
    }
}

Painters* StartPainters() {
    Painters* const painters = new Painters;
    const unsigned processors = std::max(std::thread::hardware_concurrency(), 1u);
    for (unsigned i = 0; i < std::min(processors - 1, kHelperLimit); ++i)
        painters->helpers.emplace_back(Help, std::ref(*painters));
    return painters;
}

void StopPainters(Painters* painters) {
    if (!painters) return;
    {
        const std::lock_guard guard(painters->lock);
        painters->ended = true;
    }
    painters->wake.notify_all();
    for (std::thread& helper : painters->helpers) helper.join();
    delete painters;
}

void PaintScene(Painters& painters, Scene scene, const Canvas& canvas) {
    const std::shared_ptr<PaintJob> job(
        new PaintJob{std::move(scene), canvas, (canvas.height + kBandRows - 1) / kBandRows});
    {
        const std::lock_guard guard(painters.lock);
        painters.job = job;
    }
    painters.wake.notify_all();
    PaintBands(*job);
    for (int painted; (painted = job->painted) < job->bands;) job->painted.wait(painted);
}
