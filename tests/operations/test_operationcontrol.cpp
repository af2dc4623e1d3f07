#include "operations/commandererror.h"
#include "operations/conflictpolicy.h"
#include "operations/operationcontrol.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace quillorn;

TEST(OperationControl, FreshControlReportsPreparingAndDoesNotThrow)
{
    OperationControl control;
    const auto progress = control.progress();
    EXPECT_EQ(progress.completed, 0);
    EXPECT_EQ(progress.expected, 0);
    EXPECT_EQ(progress.detail, "Preparing");
    EXPECT_NO_THROW(control.check());
}

TEST(OperationControl, CancelIsPermanentAndIdempotent)
{
    OperationControl control;
    control.cancel();
    control.cancel();
    EXPECT_THROW(control.check(), CancellationError);
    EXPECT_THROW(control.check(), CancellationError);
}

TEST(OperationControl, TotalReplacesAndAddAccumulates)
{
    OperationControl control;
    control.total(100);
    control.total(50);
    control.add(10);
    control.add(10);
    control.detail("Copying a");
    const auto progress = control.progress();
    EXPECT_EQ(progress.expected, 50);
    EXPECT_EQ(progress.completed, 20);
    EXPECT_EQ(progress.detail, "Copying a");
}

TEST(OperationControl, ConcurrentAddsAreNotLost)
{
    OperationControl control;
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t)
        workers.emplace_back([&] {
            for (int i = 0; i < 10000; ++i)
                control.add(1);
        });
    for (auto &worker : workers)
        worker.join();
    EXPECT_EQ(control.progress().completed, 40000);
}

TEST(ConflictPolicy, RawValuesAreExactAndOrdered)
{
    EXPECT_EQ(conflictPolicyFromRawValue("Keep both"), ConflictPolicy::keepBoth);
    EXPECT_EQ(conflictPolicyFromRawValue("keep both"), std::nullopt);
    EXPECT_EQ(conflictPolicyFromRawValue("Replace"), std::nullopt);
    EXPECT_EQ(conflictPolicyFromRawValue("Replace (old item to Trash)"), ConflictPolicy::replace);
    std::vector<std::string_view> labels;
    for (auto policy : allConflictPolicies)
        labels.push_back(rawValue(policy));
    EXPECT_EQ(labels, (std::vector<std::string_view>{"Stop", "Skip", "Keep both", "Replace (old item to Trash)"}));
}
