// Included first in every source of a sanitizer build. Functions built in
// several versions with target_clones are chosen at start-up by resolvers
// that run before the sanitizer runtime is ready, and crash when they are
// instrumented; these builds keep the default version of each function.
#define target_clones(...)
