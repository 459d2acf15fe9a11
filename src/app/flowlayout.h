#pragma once

#include <QLayout>
#include <QList>

// A row of buttons that wraps onto further lines when the width runs short, so a button
// row never sets the narrowest width of a page (German labels are long). Items keep
// their size hints and the order they were added in; stretches are not supported.
//
// GUI thread.
class FlowLayout : public QLayout {
public:
    explicit FlowLayout(QWidget *parent = nullptr, int spacing = -1);
    ~FlowLayout() override;

    void addItem(QLayoutItem *item) override;
    [[nodiscard]] int count() const override;
    [[nodiscard]] QLayoutItem *itemAt(int index) const override;
    [[nodiscard]] QLayoutItem *takeAt(int index) override;
    [[nodiscard]] Qt::Orientations expandingDirections() const override;
    [[nodiscard]] bool hasHeightForWidth() const override;
    [[nodiscard]] int heightForWidth(int width) const override;
    [[nodiscard]] QSize minimumSize() const override;
    [[nodiscard]] QSize sizeHint() const override;
    void setGeometry(const QRect &rect) override;

private:
    // Places the items in `rect` (only measures when `apply` is false); returns the height used.
    int arrange(const QRect &rect, bool apply) const;
    [[nodiscard]] int gap() const;

    QList<QLayoutItem *> m_items;
    int m_spacing;
};
