#pragma once

#include <QColor>
#include <QWidget>

// One of the graded lights of an archive's row: a disc in its role's colour while lit, a hollow
// outline while off. Colours follow the palette, so light and dark windows both read well.
// Main thread only.
class StatusLightView : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(bool lit READ lit WRITE setLit NOTIFY litChanged)
    // What the light grades ("Capture"); it starts the name a screen reader says.
    Q_PROPERTY(QString aspect READ aspect WRITE setAspect)

public:
    enum class Role
    {
        OK,
        Warning,
        Critical,
    };
    Q_ENUM(Role)

    explicit StatusLightView(QWidget* parent = nullptr);

    Role role() const { return m_role; }
    void setRole(Role role);
    bool lit() const { return m_lit; }
    const QString& aspect() const { return m_aspect; }
    void setAspect(const QString& aspect);
    void setLit(bool lit);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    void litChanged(bool lit);

protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    // The fill of a lit light of this role on the current palette.
    QColor litColor() const;
    void updateAccessibleName();

    Role m_role = Role::OK;
    bool m_lit = false;
    QString m_aspect;
};
