// mem_pool_bench.cpp: the pool with blocks of 64 bytes, beside allocators and other pools.
#include "mempool.h"

#include "beside.h"

#include <benchmark/benchmark.h>
#include <boost/pool/pool.hpp>
#include <rte_eal.h>
#include <rte_lcore.h>
#include <rte_mempool.h>

#include <dlfcn.h>
#include <semaphore.h>
#include <stdlib.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{
constexpr unsigned BlockBytes = 64, Blocks = 2000;

// ---- The contenders: alloc(), free(), for some waitAndAlloc(); DpdkPool also needs every thread to sign on ----

struct Contender {
    void signOn() {}
};

class OurPool : public Contender
{
public:
    explicit OurPool(unsigned blocks) : pool_(BlockBytes, blocks) {}
    void *alloc()
    {
        return pool_.vxAlloc(0);
    }
    void *waitAndAlloc()
    {
        return pool_.vxAlloc(-1);
    }
    void free(void *block)
    {
        pool_.vxFree(block);
    }

private:
    vxFixedSizeMemPool pool_;
};

// What the pool cannot do without: the list's semaphore for each call, and a give of the other one for each free.
class Floor : public Contender
{
public:
    explicit Floor(unsigned blocks)
    {
        sem_init(&list_, 0, 1);
        sem_init(&avail_, 0, 0);
        for (unsigned i = 0; i < blocks; ++i)
            free(&memory_[i]);
    }
    void *alloc()
    {
        sem_wait(&list_);
        Block *const block = head_;
        if (block != nullptr) {
            head_ = block->next;
            if (head_ == nullptr)
                sem_trywait(&avail_);
        }
        sem_post(&list_);
        return block;
    }
    void *waitAndAlloc()
    {
        for (;;) {
            if (void *block = alloc())
                return block;
            sem_wait(&avail_);
        }
    }
    void free(void *block)
    {
        sem_wait(&list_);
        auto *const freed = static_cast<Block *>(block);
        freed->next = head_;
        head_ = freed;
        sem_post(&avail_);
        sem_post(&list_);
    }

private:
    union Block {
        Block *next;
        char bytes[BlockBytes];
    };
    sem_t list_, avail_;
    Block *head_ = nullptr;
    std::vector<Block> memory_ = std::vector<Block>(Blocks);
};

class Malloc : public Contender
{
public:
    explicit Malloc(unsigned) {}
    void *alloc()
    {
        return ::malloc(BlockBytes);
    }
    void free(void *block)
    {
        ::free(block);
    }
};

// Loaded apart, because a program that is linked with it uses it for everything.
class Mimalloc : public Contender
{
public:
    explicit Mimalloc(unsigned) {}
    void *alloc()
    {
        return calls_.malloc(BlockBytes);
    }
    void free(void *block)
    {
        calls_.free(block);
    }

private:
    struct Calls {
        void *(*malloc)(size_t);
        void (*free)(void *);
    };
    static Calls load()
    {
        void *library = dlopen("libmimalloc.so.2", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr)
            throw std::runtime_error(dlerror());
        return {reinterpret_cast<void *(*)(size_t)>(dlsym(library, "mi_malloc")),
                reinterpret_cast<void (*)(void *)>(dlsym(library, "mi_free"))};
    }
    static inline const Calls calls_ = load();
};

class BoostPool : public Contender
{
public:
    explicit BoostPool(unsigned blocks) : pool_(BlockBytes, blocks), left_(blocks) {}
    void *alloc()
    {
        const std::lock_guard hold(lock_);
        return take();
    }
    void *waitAndAlloc()
    {
        std::unique_lock hold(lock_);
        freed_.wait(hold, [this] { return left_ != 0; });
        return take();
    }
    void free(void *block)
    {
        const std::lock_guard hold(lock_);
        pool_.free(block);
        ++left_;
        freed_.notify_one();
    }

private:
    void *take()
    {
        --left_;
        return pool_.malloc();
    }
    std::mutex lock_;
    std::condition_variable freed_;
    boost::pool<> pool_;
    unsigned left_;
};

// Without huge pages and devices. A thread that has signed on has a cache of its own.
class DpdkPool
{
public:
    explicit DpdkPool(unsigned)
    {
        startOnce();
        static int serial;
        constexpr unsigned cached = 256;
        pool_ = rte_mempool_create(("pool" + std::to_string(++serial)).c_str(), Blocks * 4 - 1, BlockBytes, cached, 0,
                                   nullptr, nullptr, nullptr, nullptr, SOCKET_ID_ANY, 0);
        if (pool_ == nullptr)
            throw std::runtime_error("rte_mempool_create");
    }
    ~DpdkPool()
    {
        rte_mempool_free(pool_);
    }
    DpdkPool(const DpdkPool &) = delete;
    DpdkPool &operator=(const DpdkPool &) = delete;
    void signOn()
    {
        if (rte_lcore_id() == LCORE_ID_ANY)
            rte_thread_register();
    }
    void *alloc()
    {
        void *block = nullptr;
        rte_mempool_get(pool_, &block);
        return block;
    }
    void free(void *block)
    {
        rte_mempool_put(pool_, block);
    }

private:
    static void startOnce()
    {
        static const int started = [] {
            cpu_set_t before; // which the start narrows to one CPU
            pthread_getaffinity_np(pthread_self(), sizeof before, &before);
            const char *arguments[] = {"mem_pool_bench", "--no-huge", "--no-shconf", "--no-pci", "--no-telemetry",
                                       "--log-level=1",  "-m",        "64",          "-l",       "0"};
            const int result = rte_eal_init(std::size(arguments), const_cast<char **>(arguments));
            pthread_setaffinity_np(pthread_self(), sizeof before, &before);
            return result;
        }();
        if (started < 0)
            throw std::runtime_error("rte_eal_init");
    }
    rte_mempool *pool_;
};

template <class Pool>
void pair(benchmark::State &state)
{
    Pool pool(Blocks);
    pool.signOn();
    for (auto _ : state) {
        void *block = pool.alloc();
        benchmark::DoNotOptimize(block);
        pool.free(block);
    }
}

template <class Pool>
void outAndBack(benchmark::State &state)
{
    constexpr size_t count = 1000;
    Pool pool(Blocks);
    pool.signOn();
    std::vector<void *> out(count);
    while (state.KeepRunningBatch(count)) {
        for (void *&block : out)
            block = pool.alloc();
        for (void *block : out)
            pool.free(block);
    }
}

template <class Pool>
void pairOfThreads(benchmark::State &state)
{
    static Pool pool(Blocks);
    pool.signOn();
    for (auto _ : state) {
        void *block = pool.alloc();
        benchmark::DoNotOptimize(block);
        pool.free(block);
    }
}

// Two pools of one block: each thread waits for what the other one frees.
template <class Pool>
void handOver(benchmark::State &state)
{
    const beside::OnOneCpu oneCpu;
    Pool there(1), back(1);
    void *blockThere = there.alloc();
    void *blockBack = back.alloc();
    std::atomic<bool> stop{false};
    std::thread partner([&] {
        for (;;) {
            blockThere = there.waitAndAlloc();
            if (stop)
                return;
            back.free(blockBack);
        }
    });
    for (auto _ : state) {
        there.free(blockThere);
        blockBack = back.waitAndAlloc();
    }
    stop = true;
    there.free(blockThere);
    partner.join();
    there.free(blockThere); // a pool whose blocks are all out is not destroyed
    back.free(blockBack);
}

template <class Pool>
void add(const std::string &who)
{
    const auto named = [&](const char *operation) { return std::string("pool_") + operation + "/" + who; };
    benchmark::RegisterBenchmark(named("pair").c_str(), pair<Pool>);
    benchmark::RegisterBenchmark(named("1000_out_and_back").c_str(), outAndBack<Pool>);
    benchmark::RegisterBenchmark(named("threads").c_str(), pairOfThreads<Pool>)->Threads(2)->Threads(4)->UseRealTime();
    if constexpr (requires(Pool pool) { pool.waitAndAlloc(); })
        benchmark::RegisterBenchmark(named("hand_over").c_str(), handOver<Pool>)
            ->UseRealTime()
            ->Iterations(beside::RoundTrips);
}

const bool added = [] {
    add<OurPool>("ours");
    add<Floor>("floor");
    add<Malloc>("malloc");
    add<Mimalloc>("mimalloc");
    add<BoostPool>("boost_pool_and_mutex");
    add<DpdkPool>("dpdk_mempool");
    return true;
}();
} // namespace
