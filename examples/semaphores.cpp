// A lock class over a mutual-exclusion semaphore, and a one-shot signal over a binary one, as C++ code uses them.
#include <cstdio>
#include <thread>
#include <vector>
#include <vxw_shim.h>

// Takes a semaphore for as long as it lives.
class Holding
{
public:
    explicit Holding(SEM_ID taken) : sem(taken)
    {
        semTake(sem, WAIT_FOREVER);
    }
    ~Holding()
    {
        semGive(sem);
    }
    Holding(const Holding &) = delete;
    Holding &operator=(const Holding &) = delete;

private:
    SEM_ID sem;
};

int main()
{
    const SEM_ID sumLock = semMCreate(SEM_Q_PRIORITY);
    const SEM_ID start = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    int sum = 0; // under sumLock

    // The semaphores work between threads of any kind: these can be joined, taskSpawn()'s cannot.
    std::vector<std::thread> workers;
    for (int worker = 0; worker < 4; ++worker)
        workers.emplace_back([&] {
            semTake(start, WAIT_FOREVER);
            const Holding outer(sumLock);
            for (int number = 1; number <= 100; ++number) {
                const Holding again(sumLock); // recursive
                sum += number;
            }
        });
    for (size_t worker = 0; worker < workers.size(); ++worker)
        semGive(start); // each give lets one take through
    for (std::thread &worker : workers)
        worker.join();
    printf("the sum is %d\n", sum);

    semDelete(start);
    semDelete(sumLock);
}

/* Prints:
the sum is 20200
*/
