// Gives back what the C++ runtime of the library keeps until the process ends.
//
// The library brings a runtime of its own, and that allocates some 71 KiB when it is loaded, for
// exceptions that are thrown when memory has run out. It does not release them: a host that opens
// and closes the library for each channel would lose as much every time.
namespace __gnu_cxx
{
void __freeres();
}

namespace
{

// With the lowest priority there is, so that it runs after every other destructor of the library:
// nothing of the library may throw once the memory is gone.
__attribute__((destructor(101))) void releaseRuntime()
{
    __gnu_cxx::__freeres();
}

} // namespace
