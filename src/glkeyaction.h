// The shell's vocabulary of key actions and the dispatcher that runs one.
#pragma once

enum class GLKeyAction : int
{
    None = 0,
    PassThrough = 1,
    Consume = 2,
    PassToFocusedChild = 3,
    CyclePanelTabFocus = 4,
    MoveLeft = 5,
    MoveRight = 6,
    MoveUp = 7,
    MoveDown = 8,
    MoveHome = 9,
    MoveEnd = 10,
    SelectPrev = 11,
    SelectNext = 12,
    PagePrev = 13,
    PageNext = 14,
    SelectFirst = 15,
    SelectLast = 16,
    Activate = 17,
    Confirm = 18,
    Cancel = 19,
    Edit = 20,
    DeleteBackward = 21,
    DeleteForward = 22,
    Expand = 23,
    Collapse = 24,
    ExpandOrSelectChild = 25,
    CollapseOrSelectParent = 26,
    Toggle = 27,
    ToggleOrActivate = 28,
    NavigateUp = 29,
    SwitchPane = 30,
    SelectAll = 31,
};

// None and PassThrough leave the key to someone else; every other action is
// handed to the executor and counts as consumed.
template <typename ExecutorT>
bool GLDispatchKeyAction(GLKeyAction Action, ExecutorT&& Executor)
{
    if (Action == GLKeyAction::None || Action == GLKeyAction::PassThrough)
        return false;
    Executor(Action);
    return true;
}
