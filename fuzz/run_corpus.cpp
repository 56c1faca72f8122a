// run_corpus.cpp: runs a fuzzer over the files of the folders it is given, one after the other.
//
// It is the program's main where there is no libFuzzer, so that every compiler and machine replays the kept inputs.
#include "fuzz_input.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace
{
std::vector<std::filesystem::path> filesIn(const char *folder)
{
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        if (entry.is_regular_file())
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

void run(const std::filesystem::path &file)
{
    printf("%s\n", file.filename().c_str());
    fflush(stdout); // the last line names the input that ended the process
    std::ifstream stream(file, std::ios::binary);
    require(stream.good(), "the input can be read");
    const std::vector<char> content{std::istreambuf_iterator<char>(stream), {}};
    const std::vector<uint8_t> input(content.begin(), content.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}
} // namespace

int main(int count, char **folders)
{
    size_t inputs = 0;
    for (int i = 1; i < count; i++) {
        const auto files = filesIn(folders[i]);
        std::for_each(files.begin(), files.end(), run);
        inputs += files.size();
    }
    printf("%zu inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
