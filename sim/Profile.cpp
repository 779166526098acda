#include "sim/Profile.h"

#include <set>
#include <stdexcept>

#include "sim/Names.h"

namespace sim {

const std::vector<Profile>& profiles() {
    static const std::vector<Profile> kProfiles = {
            {"ufs40:samsung", Generation::kUfs40, "SAMSUNG", "SIMUFS40-S256", "0800", 64},
            {"ufs40:skhynix", Generation::kUfs40, "SKhynix", "HN8T174EJKX075", "X206", 64},
            {"ufs40:micron", Generation::kUfs40, "MICRON", "MT256GBEAX4U40", "0205", 127},
            {"ufs40:kioxia", Generation::kUfs40, "KIOXIA", "THGJFLT2E46BATPB", "1200", 255},
            {"ufs40:wdc", Generation::kUfs40, "WDC", "SIMUFS40-W256", "1272", 64},
            // A phone that must not use EUA.
            {"ufs40:skhynix-tarno", Generation::kUfs40, "SKhynix", "HN8T174EJKX075", "X202", 64,
             "tarno"},
            {"ufs31:samsung", Generation::kUfs31, "SAMSUNG", "SIMUFS31-S128", "1000", 32},
            {"ufs31:skhynix", Generation::kUfs31, "SKhynix", "SIMUFS31-H128", "A102", 32},
            {"ufs31:micron", Generation::kUfs31, "MICRON", "SIMUFS31-M256", "0106", 32},
            {"ufs31:kioxia", Generation::kUfs31, "KIOXIA", "SIMUFS31-K256", "0300", 64},
            {"ufs31:wdc", Generation::kUfs31, "WDC", "SIMUFS31-W128", "1215", 32},
    };
    return kProfiles;
}

const Profile& findProfile(std::string_view name) {
    for (const Profile& profile : profiles()) {
        if (profile.name == name) return profile;
    }
    std::set<std::string> names;
    for (const Profile& profile : profiles()) names.insert(profile.name);
    throw std::invalid_argument("no device profile is called \"" + std::string(name) + "\"" +
                                didYouMean(name, names));
}

}  // namespace sim
