#pragma once

/*
 * A host's stand-in for the platform's header of this name, which generated headers include
 * whether or not they pass message queues. Ours pass none.
 */
