#include "platform/chartdetect/mccrunner.h"

#include "platform/chartdetect/chartsearch.h"

#include <opencv2/mcc.hpp>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace kestro::chartdetect {

namespace {

struct Job
{
    cv::Mat image;
    MccSettings settings;
    std::vector<Box> boxes;
    std::mutex mutex;
    std::condition_variable doneSignal;
    bool done = false;
};

void detect(Job &job)
{
    std::vector<Box> boxes;
    try {
        cv::Ptr<cv::mcc::CCheckerDetector> detector = cv::mcc::CCheckerDetector::create();
        cv::Ptr<cv::mcc::DetectorParameters> params = cv::mcc::DetectorParameters::create();
        // The caller chooses the scale; the detector must not enlarge it.
        params->minImageSize = std::min(job.image.cols, job.image.rows);
        params->adaptiveThreshWinSizeMin = job.settings.windowMin;
        params->adaptiveThreshWinSizeMax = job.settings.windowMax;
        params->adaptiveThreshWinSizeStep = job.settings.windowStep;
        params->minContourLengthAllowed = job.settings.minContourLength;
        params->minContoursArea = 0.05 * job.settings.minContourLength
                                  * job.settings.minContourLength;
        if (detector->process(job.image, cv::mcc::MCC24, job.settings.maxCharts, false, params)) {
            for (const cv::Ptr<cv::mcc::CChecker> &checker : detector->getListColorChecker()) {
                if (!checker)
                    continue;
                const std::vector<cv::Point2f> box = checker->getBox();
                if (box.size() != 4)
                    continue;
                Box b;
                for (int i = 0; i < 4; ++i)
                    b[i] = {box[i].x, box[i].y};
                boxes.push_back(b);
            }
        }
    } catch (...) {
        // A failing detector run is a run without candidates.
        boxes.clear();
    }
    std::lock_guard<std::mutex> lock(job.mutex);
    job.boxes = std::move(boxes);
    job.done = true;
    job.doneSignal.notify_all();
}

// Threads of cancelled runs. They are joined when the next run starts (if
// they are done) and at the end of the program.
class Reaper
{
public:
    static Reaper &instance()
    {
        static Reaper reaper;
        return reaper;
    }
    void adopt(std::thread thread, std::shared_ptr<Job> job)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_threads.push_back({std::move(thread), std::move(job)});
    }
    void joinFinished()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto it = m_threads.begin(); it != m_threads.end();) {
            bool done;
            {
                std::lock_guard<std::mutex> jobLock(it->job->mutex);
                done = it->job->done;
            }
            if (done) {
                it->thread.join();
                it = m_threads.erase(it);
            } else {
                ++it;
            }
        }
    }
    ~Reaper()
    {
        for (Entry &e : m_threads)
            e.thread.join();
    }

private:
    struct Entry
    {
        std::thread thread;
        std::shared_ptr<Job> job;
    };
    std::mutex m_mutex;
    std::vector<Entry> m_threads;
};

} // namespace

bool runMcc(const cv::Mat &image, const MccSettings &settings, std::vector<Box> &boxes,
            const unsigned char *keepRunning)
{
    boxes.clear();
    if (!keepGoing(keepRunning))
        return false;
    Reaper &reaper = Reaper::instance();
    reaper.joinFinished();
    auto job = std::make_shared<Job>();
    // The job may outlive this call, so it owns its pixels.
    job->image = image.isContinuous() && image.u ? image : image.clone();
    job->settings = settings;
    std::thread thread([job] { detect(*job); });
    std::unique_lock<std::mutex> lock(job->mutex);
    while (!job->done) {
        job->doneSignal.wait_for(lock, std::chrono::milliseconds(10));
        if (!job->done && !keepGoing(keepRunning)) {
            lock.unlock();
            reaper.adopt(std::move(thread), job);
            return false;
        }
    }
    boxes = job->boxes;
    lock.unlock();
    thread.join();
    return true;
}

} // namespace kestro::chartdetect
