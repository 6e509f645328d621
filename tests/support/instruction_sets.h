/// Runs a check with each instruction set that the library's vector code was built for and this processor has.

#pragma once

#include <gtest/gtest.h>

#if defined(VNDLP_HAVE_HIGHWAY)
#include <hwy/highway.h>
#endif

namespace vndlp::test {

template <class Check>
void withEachInstructionSet(Check&& check) {
#if defined(VNDLP_HAVE_HIGHWAY)
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        SCOPED_TRACE(hwy::TargetName(target));
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
        check();
        hwy::SetSupportedTargetsForTest(0);
        hwy::GetChosenTarget().DeInit();
    }
#else
    check();
#endif
}

}  // namespace vndlp::test
