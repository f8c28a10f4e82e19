#include "store/handle_table.h"

#include "tests/support.h"

TEST(HandleTable, GoesRoundAndHandsOutEachHandleOnce)
{
    CIfsHandle handles(8);
    const auto take = [&handles](std::initializer_list<int> expected) {
        for (const int handle : expected) {
            EXPECT_EQ(handles.Ifsh_get(), handle);
        }
    };
    take({1, 2, 3});
    handles.Ifsh_free(2);
    take({4, 5, 6, 7, 8, 2, -1}); // 2 is not used again at once
    handles.Ifsh_free(2);
    take({-1}); // what was handed out last is not looked at
    handles.Ifsh_free(8);
    take({8, 2, -1});
    for (const int foreign : {0, -5, 9, 1000}) {
        EXPECT_EQ(handles.Ifsh_free(foreign), 0);
        EXPECT_EQ(handles.Ifsh_valid_handle(foreign), 0);
    }
    take({-1});
    EXPECT_EQ(handles.Ifsh_valid_handle(1) + handles.Ifsh_valid_handle(8), 2);
}
