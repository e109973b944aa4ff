// GLChildWindow: base class of the shell's child windows. The shell owns the
// rectangle and drives the virtual operations below on its frame thread.
#pragma once

#include <GL/gl.h>

#include <cstdint>
#include <functional>

#include <nlohmann/json.hpp>

class GLChildWindow;

// The top-level window that holds child windows.
class GLWindow
{
public:
    bool bMovePreviewActive = false;  // a move of the window is being previewed
};

class GLChildWindow
{
public:
    using StateSerializer = std::function<nlohmann::json(const GLChildWindow*)>;
    using StateApplier = std::function<void(GLChildWindow*, const nlohmann::json&)>;

    int64_t ChildWindowID = 0;
    bool bEnabled = true;
    bool bVisible = true;
    // Rectangle in normalised screen coordinates; Y1 is the top edge.
    double X1 = 0.0;
    double Y1 = 0.0;
    double X2 = 0.0;
    double Y2 = 0.0;
    bool bFocused = false;
    bool bHovered = false;
    GLWindow* pHostWindow = nullptr;  // not owned; may be null

    GLChildWindow() = default;
    GLChildWindow(const GLChildWindow&) = delete;
    GLChildWindow& operator=(const GLChildWindow&) = delete;

    virtual ~GLChildWindow();
    virtual bool Init();
    virtual void Destroy();
    virtual void BackgroundTick();
    virtual void OnHostWindowClosing();
    virtual void Render(GLdouble X1Clip, GLdouble Y1Clip, GLdouble X2Clip, GLdouble Y2Clip, GLdouble OffsetX,
                        GLdouble OffsetY);
    virtual void RenderOverlay(GLdouble X1Clip, GLdouble Y1Clip, GLdouble X2Clip, GLdouble Y2Clip,
                               GLdouble OffsetX, GLdouble OffsetY);
    virtual void Render(GLdouble OffsetX, GLdouble OffsetY);
    virtual void EventMouseOver();
    virtual void EventMouseOut();
    virtual void EventMouseClick(int ButtonID, double x, double y);
    virtual void EventMouseRelease(int ButtonID, double x, double y);
    virtual void EventMouseDoubleClick(int ButtonID);
    virtual bool HandleGlobalKey(int KeySym, bool ShiftMod, bool ControlMod, bool AltMod);
    virtual bool HandleTextInput(const char* Text);
    virtual bool HandleTextInputChar(char Character);
    virtual bool WantsPriorityGlobalKey(int KeySym, bool ShiftMod, bool ControlMod, bool AltMod) const;
    virtual bool DispatchGlobalKey(int KeySym, bool ShiftMod, bool ControlMod, bool AltMod);
    virtual bool DispatchTextInput(const char* Text);
    virtual bool DispatchTextInputChar(char Character);
    virtual void ForEachDirectChild(const std::function<void(GLChildWindow*)>& Visit);
    virtual void ForEachDirectChild(const std::function<void(const GLChildWindow*)>& Visit) const;
    virtual void SerializeState(nlohmann::json& j, const StateSerializer& SerializeChild) const;
    virtual void ApplyState(const nlohmann::json& j, const StateApplier& ApplyChild);
    virtual const char* GetStateType() const;
    virtual unsigned int GetStatePersistenceFlags() const;
    virtual bool ShouldSerializeState() const;
    virtual int GetStateVersion() const;
    virtual bool CanApplyStateVersion(int Version) const;
    virtual bool MigrateExtraState(nlohmann::json& Extra, int FromVersion) const;
    virtual void SerializeExtraState(nlohmann::json& j) const;
    virtual void ApplyExtraState(const nlohmann::json& j);
    virtual bool ContainsPoint(double x, double y) const;
    virtual void MouseProcessing();
    virtual void RenderDebugOverlay(GLdouble X1Clip, GLdouble Y1Clip, GLdouble X2Clip, GLdouble Y2Clip,
                                    GLdouble OffsetX, GLdouble OffsetY) const;
};
