// Runs a fuzz target over the files of folders, for compilers without libFuzzer and for Windows.
// Exit code 1 without a single file: a corpus that was not found must not pass.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& file) {
    std::printf("%s\n", file.filename().string().c_str());
    std::fflush(stdout); // a check that fails ends the program
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    // A block of exactly the size, so that a sanitizer sees reads past it.
    const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

} // namespace

int main(int count, char** arguments) {
    try {
        std::size_t files = 0;
        for (int i = 1; i < count; ++i)
            for (const auto& entry : std::filesystem::directory_iterator(arguments[i]))
                if (entry.is_regular_file()) {
                    replay(entry.path());
                    ++files;
                }
        std::printf("%zu files\n", files);
        return files > 0 ? 0 : 1;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
