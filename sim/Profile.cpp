#include "sim/Profile.h"

#include <stdexcept>

namespace sim {

const std::vector<Profile>& profiles() {
    static const std::vector<Profile> kProfiles = {
            {"ufs40:samsung", Generation::kUfs40, Maker::kSamsung, "SAMSUNG", 64},
            {"ufs40:skhynix", Generation::kUfs40, Maker::kSkHynix, "SKhynix", 64},
            {"ufs40:micron", Generation::kUfs40, Maker::kMicron, "MICRON", 127},
            {"ufs40:kioxia", Generation::kUfs40, Maker::kKioxia, "KIOXIA", 255},
            {"ufs40:wdc", Generation::kUfs40, Maker::kWdc, "WDC", 64},
            {"ufs31:samsung", Generation::kUfs31, Maker::kSamsung, "SAMSUNG", 32},
            {"ufs31:skhynix", Generation::kUfs31, Maker::kSkHynix, "SKhynix", 32},
            {"ufs31:micron", Generation::kUfs31, Maker::kMicron, "MICRON", 32},
            {"ufs31:kioxia", Generation::kUfs31, Maker::kKioxia, "KIOXIA", 64},
            {"ufs31:wdc", Generation::kUfs31, Maker::kWdc, "WDC", 32},
    };
    return kProfiles;
}

const Profile& findProfile(std::string_view name) {
    for (const Profile& profile : profiles()) {
        if (profile.name == name) return profile;
    }
    throw std::invalid_argument("no device profile is called \"" + std::string(name) + "\"");
}

}  // namespace sim
