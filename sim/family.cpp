#include "sim/family.h"

namespace passbook::sim {

const FamilyRules& rulesOf(wire::Family family) {
    switch (family) {
        case wire::Family::oli:
            break;
        case wire::Family::oki:
            return okiRules;
    }
    return oliRules;
}

}  // namespace passbook::sim
