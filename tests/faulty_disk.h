// A disk that fails on purpose: an SQLite VFS in front of the usual one. It never really syncs, and its clock stands.
#ifndef ZEL_TESTS_FAULTY_DISK_H
#define ZEL_TESTS_FAULTY_DISK_H

namespace zel_test
{

/// Calls that can fail; together they make a bit set.
enum disk_call : unsigned {
    DISK_READ = 1,
    DISK_WRITE = 2,
    DISK_SYNC = 4,
    DISK_TRUNCATE = 8,
    DISK_OPEN = 16,
    DISK_DELETE = 32,
    DISK_LOCK = 64,
    DISK_SIZE = 128,
    DISK_DELETED = 256, ///< the deletion is carried out, and fails nevertheless
    DISK_EVERY = 255,
    SQLITE_MEMORY = 512, ///< an allocation
};

/// Makes the VFS the default one, for connections opened from now on, and lets SQLite's allocations fail too. To be
/// called before anything is opened.
void use_faulty_disk();

/// From now on files can be opened for reading only, or again as usual.
void make_disk_read_only(bool read_only);

/// While it lives, the n-th call among the chosen ones fails.
class disk_fault
{
  public:
    /// @param lasting all calls after it fail as well
    /// @param code    what SQLite is told; 0 for the code that is usual for the call
    disk_fault(unsigned calls, int nth, bool lasting, int code);
    ~disk_fault();
    disk_fault(const disk_fault &) = delete;
    disk_fault &operator=(const disk_fault &) = delete;

    bool happened() const;
};

} // namespace zel_test

#endif
