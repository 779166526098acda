#pragma once

#include <vector>

#include "bench/Service.h"

namespace bench {

/** A question that the service answers from the driver's nodes. */
struct Query {
    const char* name;
    int (*library)(Fbo& service);
    int (*floor)();
    /** Nodes that are opened. */
    int nodes;
    /** What either answers on a PlainPhone. */
    int answer;
};

const std::vector<Query>& queries();

}  // namespace bench
