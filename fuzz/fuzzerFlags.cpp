// Limits of every fuzz target, in force where the command line does not set its own.
//
// A count in a damaged file is materialised up to 1 GiB for each vector, and a security holds two
// vectors, so the memory that a correct load takes passes libFuzzer's ordinary limits.

#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
    static std::vector<std::string> flags = {"-rss_limit_mb=8192", "-malloc_limit_mb=2560",
                                             "-timeout=60", "-max_len=" VDREADER_MAX_LEN};
    static std::vector<char*> all;
    for (int i = 0; i < *count; ++i)
        all.push_back((*arguments)[i]);
    for (std::string& flag : flags) {
        const std::string name = flag.substr(0, flag.find('=') + 1);
        bool given = false;
        for (int i = 1; i < *count; ++i)
            given = given || std::string((*arguments)[i]).compare(0, name.size(), name) == 0;
        if (!given)
            all.push_back(flag.data());
    }
    *count = static_cast<int>(all.size());
    all.push_back(nullptr);
    *arguments = all.data();
    return 0;
}
