#include "glchildwindow.h"

GLChildWindow::~GLChildWindow() = default;
bool GLChildWindow::Init() { return true; }
void GLChildWindow::Destroy() {}
void GLChildWindow::BackgroundTick() {}
void GLChildWindow::OnHostWindowClosing() {}
void GLChildWindow::Render(GLdouble, GLdouble, GLdouble, GLdouble, GLdouble, GLdouble) {}
void GLChildWindow::RenderOverlay(GLdouble, GLdouble, GLdouble, GLdouble, GLdouble, GLdouble) {}
void GLChildWindow::Render(GLdouble, GLdouble) {}
void GLChildWindow::EventMouseOver() { bHovered = true; }
void GLChildWindow::EventMouseOut() { bHovered = false; }
void GLChildWindow::EventMouseClick(int, double, double) {}
void GLChildWindow::EventMouseRelease(int, double, double) {}
void GLChildWindow::EventMouseDoubleClick(int) {}
bool GLChildWindow::HandleGlobalKey(int, bool, bool, bool) { return false; }
bool GLChildWindow::HandleTextInput(const char*) { return false; }
bool GLChildWindow::HandleTextInputChar(char) { return false; }
bool GLChildWindow::WantsPriorityGlobalKey(int, bool, bool, bool) const { return false; }

// A plain child has no children of its own, so the key goes to itself.
bool GLChildWindow::DispatchGlobalKey(int KeySym, bool ShiftMod, bool ControlMod, bool AltMod)
{
    return bEnabled && bVisible && HandleGlobalKey(KeySym, ShiftMod, ControlMod, AltMod);
}

bool GLChildWindow::DispatchTextInput(const char* Text) { return bEnabled && bVisible && HandleTextInput(Text); }
bool GLChildWindow::DispatchTextInputChar(char Character)
{
    return bEnabled && bVisible && HandleTextInputChar(Character);
}

void GLChildWindow::ForEachDirectChild(const std::function<void(GLChildWindow*)>&) {}
void GLChildWindow::ForEachDirectChild(const std::function<void(const GLChildWindow*)>&) const {}

// Layout: {"type", "version", "rect": [x1, y1, x2, y2], "extra": {...}, "children": [...]}.
void GLChildWindow::SerializeState(nlohmann::json& j, const StateSerializer& SerializeChild) const
{
    j["type"] = GetStateType();
    j["version"] = GetStateVersion();
    j["flags"] = GetStatePersistenceFlags();
    j["rect"] = {X1, Y1, X2, Y2};
    nlohmann::json extra = nlohmann::json::object();
    SerializeExtraState(extra);
    j["extra"] = std::move(extra);
    if (!SerializeChild)
        return;
    nlohmann::json children = nlohmann::json::array();
    ForEachDirectChild([&](const GLChildWindow* Child) {
        if (Child && Child->ShouldSerializeState())
            children.push_back(SerializeChild(Child));
    });
    j["children"] = std::move(children);
}

void GLChildWindow::ApplyState(const nlohmann::json& j, const StateApplier& ApplyChild)
{
    if (!j.is_object())
        return;
    const auto type = j.find("type");
    if (type == j.end() || !type->is_string() || type->get<std::string>() != GetStateType())
        return;
    const auto version = j.find("version");
    const int savedVersion = (version != j.end() && version->is_number_integer()) ? version->get<int>() : 0;
    if (!CanApplyStateVersion(savedVersion))
        return;
    const auto extraIt = j.find("extra");
    if (extraIt != j.end())
    {
        nlohmann::json extra = *extraIt;
        if (savedVersion == GetStateVersion() || MigrateExtraState(extra, savedVersion))
            ApplyExtraState(extra);
    }
    const auto children = j.find("children");
    if (!ApplyChild || children == j.end() || !children->is_array())
        return;
    size_t index = 0;
    ForEachDirectChild([&](GLChildWindow* Child) {
        if (Child && index < children->size())
            ApplyChild(Child, (*children)[index]);
        ++index;
    });
}

const char* GLChildWindow::GetStateType() const { return "child_window"; }
unsigned int GLChildWindow::GetStatePersistenceFlags() const { return 0u; }
bool GLChildWindow::ShouldSerializeState() const { return true; }
int GLChildWindow::GetStateVersion() const { return 1; }
bool GLChildWindow::CanApplyStateVersion(int Version) const { return Version >= 1 && Version <= GetStateVersion(); }
bool GLChildWindow::MigrateExtraState(nlohmann::json&, int) const { return false; }
void GLChildWindow::SerializeExtraState(nlohmann::json&) const {}
void GLChildWindow::ApplyExtraState(const nlohmann::json&) {}

bool GLChildWindow::ContainsPoint(double x, double y) const
{
    return x >= X1 && x <= X2 && y <= Y1 && y >= Y2;
}

void GLChildWindow::MouseProcessing() {}
void GLChildWindow::RenderDebugOverlay(GLdouble, GLdouble, GLdouble, GLdouble, GLdouble, GLdouble) const {}
