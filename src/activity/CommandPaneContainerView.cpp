#include "activity/CommandPaneContainerView.h"

#include <QResizeEvent>

CommandPaneContainerView::CommandPaneContainerView(QWidget* parent)
    : MonitorStackedContainerView(parent)
{}

void CommandPaneContainerView::setMultilineTextFields(const QList<QLabel*>& fields)
{
    m_multilineTextFields.clear();
    for (QLabel* field : fields) {
        field->setWordWrap(true);
        m_multilineTextFields.append(field);
    }
    measureMultilineTextFields();
}

void CommandPaneContainerView::resizeEvent(QResizeEvent* event)
{
    MonitorStackedContainerView::resizeEvent(event);
    measureMultilineTextFields();
}

// A wrapped label's height depends on its width, which only the layout pass knows: each pass
// fixes the height that the new width needs, so the pane grows or shrinks with its text.
void CommandPaneContainerView::measureMultilineTextFields()
{
    for (const auto& field : std::as_const(m_multilineTextFields)) {
        if (!field || field->width() <= 0) {
            continue;
        }
        if (const int height = field->heightForWidth(field->width()); height > 0) {
            field->setMinimumHeight(height);
        }
    }
}
