// CFirstFailureRc: a return code that keeps the first failure: once it is not 0, assignments leave
// it as it is. For sequences whose steps are all made and whose first failing code is the result.
// One thread.
#ifndef KEEL_AGENTS_COMMON_CFIRSTFAILURERC_H
#define KEEL_AGENTS_COMMON_CFIRSTFAILURERC_H

#include <cstdint>

class CFirstFailureRc
{
public:
    explicit CFirstFailureRc(std::int32_t rc = 0) : rc_(rc) {}
    CFirstFailureRc(const CFirstFailureRc &) = default;

    CFirstFailureRc &operator=(std::int32_t rc)
    {
        if (rc_ == 0) {
            rc_ = rc;
        }
        return *this;
    }
    CFirstFailureRc &operator=(const CFirstFailureRc &other) { return *this = other.rc_; }

    operator std::int32_t() const { return rc_; }

private:
    std::int32_t rc_;
};

#endif
