// ZOLPSI::GetDataByPathAndKeyword on arbitrary file contents.
//
// Input: one byte choosing the keyword (one of the kernel's field names, or, from 0x80 up, the
// text up to the first newline of what follows, at most 32 bytes), then the file. Checked
// besides the sanitizers: the value is written only on success.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "zolpsi.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zolfuzz::Setup();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const kKeywords[] = {
        "some avg10=", "full avg10=", "avg60=", "avg300=", "total=", "some", "=", " "};
    static const std::string path = zolfuzz::DevicePath("/psi");
    zolfuzz::Reader in(data, size);
    const uint8_t choice = in.Byte();
    std::string keyword;
    if (choice < 0x80) {
        keyword = kKeywords[choice % (sizeof(kKeywords) / sizeof(kKeywords[0]))];
    } else {
        const std::string rest = in.Bytes(in.Left());
        keyword = rest.substr(0, rest.find('\n')).substr(0, 32);
        keyword = keyword.substr(0, keyword.find('\0'));
        if (keyword.empty()) {
            keyword = "some avg10=";
        }
        in = zolfuzz::Reader(data + 1, size - 1);  // the file is all of it
    }
    zolfuzz::WriteFile(path, in.Here(), in.Left());

    ZOLPSI psi;
    const float kUntouched = -12345.0f;
    float value = kUntouched;
    const bool found = psi.GetDataByPathAndKeyword(path.c_str(), keyword.c_str(), &value);
    if (!found && value != kUntouched) {
        std::fprintf(stderr, "value written although nothing was found\n");
        std::abort();
    }
    return 0;
}
