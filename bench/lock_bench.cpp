// Locks on one thread, and on two that do nothing between their sections.

#include <benchmark/benchmark.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <thread>
#include <type_traits>

#include <vel_infra/vel_infra.h>

#ifdef VEL_INFRA_WITH_ABSL
#include <absl/synchronization/mutex.h>
#endif

namespace {

// What std::lock_guard is to std::mutex.
template <class Lock, auto kTake, auto kLeave>
struct Holder {
    using mutex_type = Lock;
    explicit Holder(Lock &lock) : held(&lock) {
        kTake(held);
    }
    ~Holder() {
        kLeave(held);
    }
    Lock *held;
};

constexpr CodUint32 kType = LOCK_TYPE_OTHERS;
// As a caller without the inline path has it.
void (*volatile gSpinLock)(SpinLock *, CodUint32) = &spinLock;
void (*volatile gSpinUnlock)(SpinLock *) = &spinUnlock;
using InlineSpin = Holder<SpinLock, [](auto *lock) { spinLock(lock, kType); }, [](auto *lock) { spinUnlock(lock); }>;
using ExportedSpin = Holder<SpinLock, [](auto *lock) { gSpinLock(lock, kType); }, [](auto *lock) { gSpinUnlock(lock); }>;
using LatchReader = Holder<Latch, [](auto *latch) { latchShared(latch, kType); }, [](auto *latch) { unLatch(latch, kType); }>;
using LatchWriter = Holder<Latch, [](auto *latch) { latchExclusive(latch, 1, kType); }, [](auto *latch) { unLatch(latch, kType); }>;

constexpr auto kExchange = [](auto *word) { benchmark::DoNotOptimize(word->exchange(1, std::memory_order_acquire)); };
using Floor = Holder<std::atomic<CodUint32>, kExchange, [](auto *word) { word->store(0, std::memory_order_release); }>;
struct Spin {
    pthread_spinlock_t word;
    int initialised = pthread_spin_init(&word, PTHREAD_PROCESS_PRIVATE);
};
using PthreadSpin = Holder<Spin, [](auto *spin) { pthread_spin_lock(&spin->word); }, [](auto *spin) { pthread_spin_unlock(&spin->word); }>;
using StdMutex = std::lock_guard<std::mutex>;
using StdReader = std::shared_lock<std::shared_mutex>;
using StdWriter = std::lock_guard<std::shared_mutex>;

// About 20 ns: 27 multiplications, each waiting for the one before.
constexpr auto kMultiply = [](CodUint64 *value) {
    *value += 3;
    for (int i = 0; i < 27; i++) {
        *value *= *value;
    }
};
using Multiplication = Holder<CodUint64, kMultiply, [](CodUint64 *) {}>;

template <class Hold>
void oneThread(benchmark::State &state) {
    typename Hold::mutex_type lock{};
    benchmark::DoNotOptimize(&lock);
    for (auto _ : state) {
        const Hold hold(lock);
        benchmark::ClobberMemory();
    }
}

// Both do sections until one has done its share; the figure is per section of either. Of two kinds, one section in 20 is a writer's.
template <class Write, class Read = Write>
void twoThreads(benchmark::State &state) {
    std::array<bool, 4096> isWriter;
    std::generate(isWriter.begin(), isWriter.end(), [random = std::mt19937(1)]() mutable { return random() % 20 == 0; });
    alignas(64) typename Write::mutex_type lock{};
    alignas(64) CodUint64 value = 0;
    for (auto _ : state) {
        std::barrier start(2);
        alignas(64) std::atomic<size_t> sections = 0;  // of threads that are through
        const auto work = [&](size_t first) {
            start.arrive_and_wait();
            size_t i = first;
            for (; i < first + 1000000 && sections.load(std::memory_order_relaxed) == 0; i++) {
                if constexpr (std::is_same_v<Write, Read>) {
                    const Write hold(lock);
                    kMultiply(&value);
                } else if (isWriter[i % isWriter.size()]) {
                    const Write hold(lock);
                    value++;
                } else {
                    const Read hold(lock);
                    benchmark::DoNotOptimize(CodUint64{value});
                }
            }
            sections += i - first;
        };
        const CodInstant begin = codInstantNow();
        std::thread other(work, isWriter.size() / 2);
        work(0);
        other.join();
        state.counters["ns_per_item"] = static_cast<double>(codInstantNow() - begin) / static_cast<double>(sections);
    }
}

// The C library's locks cost less in a process that never had a second thread.
[[maybe_unused]] const bool gHadThread = (std::thread([] {}).join(), true);

BENCHMARK(oneThread<InlineSpin>)->Name("spin lock and unlock, inline/ours");
BENCHMARK(oneThread<Floor>)->Name("spin lock and unlock, inline/peer: an exchange and a store (floor)");
BENCHMARK(oneThread<PthreadSpin>)->Name("spin lock and unlock, inline/peer: pthread_spin_lock");
BENCHMARK(oneThread<StdMutex>)->Name("spin lock and unlock, inline/peer: std::mutex");
BENCHMARK(oneThread<ExportedSpin>)->Name("spin lock and unlock, exported/ours");
BENCHMARK(oneThread<Floor>)->Name("spin lock and unlock, exported/peer: an exchange and a store (floor)");
BENCHMARK(oneThread<PthreadSpin>)->Name("spin lock and unlock, exported/peer: pthread_spin_lock");
BENCHMARK(oneThread<StdMutex>)->Name("spin lock and unlock, exported/peer: std::mutex");
BENCHMARK(oneThread<LatchReader>)->Name("latch shared and release/ours");
BENCHMARK(oneThread<StdReader>)->Name("latch shared and release/peer: std::shared_mutex");
BENCHMARK(oneThread<LatchWriter>)->Name("latch exclusive and release/ours");
BENCHMARK(oneThread<StdWriter>)->Name("latch exclusive and release/peer: std::shared_mutex");
BENCHMARK(twoThreads<InlineSpin>)->Name("spin lock, two threads, 20 ns inside/ours")->Iterations(1);
BENCHMARK(twoThreads<PthreadSpin>)->Name("spin lock, two threads, 20 ns inside/peer: pthread_spin_lock")->Iterations(1);
BENCHMARK(twoThreads<StdMutex>)->Name("spin lock, two threads, 20 ns inside/peer: std::mutex")->Iterations(1);
BENCHMARK(oneThread<Multiplication>)->Name("spin lock, two threads, 20 ns inside/peer: the section alone (floor)");
BENCHMARK(twoThreads<LatchWriter, LatchReader>)->Name("latch, two threads, 95 % readers/ours")->Iterations(1);
BENCHMARK(twoThreads<StdWriter, StdReader>)->Name("latch, two threads, 95 % readers/peer: std::shared_mutex")->Iterations(1);
#ifdef VEL_INFRA_WITH_ABSL
using AbslReader = Holder<absl::Mutex, [](auto *mutex) { mutex->ReaderLock(); }, [](auto *mutex) { mutex->ReaderUnlock(); }>;
using AbslWriter = Holder<absl::Mutex, [](auto *mutex) { mutex->Lock(); }, [](auto *mutex) { mutex->Unlock(); }>;
BENCHMARK(oneThread<AbslWriter>)->Name("spin lock and unlock, inline/peer: absl::Mutex");
BENCHMARK(oneThread<AbslWriter>)->Name("spin lock and unlock, exported/peer: absl::Mutex");
BENCHMARK(twoThreads<AbslWriter, AbslReader>)->Name("latch, two threads, 95 % readers/peer: absl::Mutex")->Iterations(1);
#endif

}  // namespace
