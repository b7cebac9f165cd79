#pragma once

#include <QPointer>
#include <QRect>
#include <QWidget>
#include <optional>

class ProgressManager;

// The one-line description of a detailed pane: the manager's primary description, or, while
// the manager shows its alternate one, the verb followed by the item's icon and name where
// they fit. Main thread only.
class ProgressDescriptionField : public QWidget
{
    Q_OBJECT

public:
    enum ControlSize : unsigned
    {
        kRegularControlSize = 0,
        kSmallControlSize = 1,
        kMiniControlSize = 2,
    };
    // Room needed after the verb before the icon, and after the icon before the name.
    static constexpr int kIconRoom = 16;
    static constexpr int kNameRoom = 40;

    // Where the parts of the alternate form go in a field of the given width.
    struct AlternateLayout
    {
        QRect verb;
        std::optional<QRect> icon;
        std::optional<QRect> name;
    };

    explicit ProgressDescriptionField(QWidget* parent = nullptr);

    void bindPrimaryDescriptionTo(ProgressManager* manager);
    void bindFullDescriptionTo(ProgressManager* manager);

    unsigned controlSize() const { return m_controlSize; }
    void setControlSize(unsigned controlSize);
    double fontSize() const { return m_fontSize; }
    void setFontSize(double fontSize);
    QFont descriptionFont() const;

    // The text drawn first: the verb in the alternate form, else the primary description.
    QString displayedText() const;
    bool showsAlternate() const;
    AlternateLayout alternateLayout(int width, bool hasIcon, bool hasName) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void bind(ProgressManager* manager, bool full);
    void descriptionChanged();

    QPointer<ProgressManager> m_progressManager;
    bool m_boundToPrimary = false;
    bool m_boundToAlternative = false;
    unsigned m_controlSize = kRegularControlSize;
    double m_fontSize = 0;
};
