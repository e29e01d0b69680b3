// The directory of a cabinet, which the library itself does not show. Whatever the file says, no more is believed than
// the file's own length allows.
#pragma once

#include <fstream>
#include <string>
#include <vector>

struct CabinetMember {
    std::string name;
    long start = 0;
    long packed = 0;
    long size = 0;
    long time = 0;
    long mode = 0;
};

class Cabinet {
public:
    explicit Cabinet(const std::string& file);

    const std::vector<CabinetMember>& Members() const { return members_; }
    /// Whether a member lies in the file, is whole and has the size that it claims.
    bool IsWhole(const CabinetMember& member);

private:
    std::string Bytes(long offset, long length);

    std::string file_;
    std::ifstream in_;
    long length_ = 0;
    std::vector<CabinetMember> members_;
};
