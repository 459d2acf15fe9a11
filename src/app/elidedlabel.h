#pragma once

#include <QLabel>

// One line of text that fits any width: what does not fit is left out in the middle
// ("/home/anna/Mu…/Feeling Good.mp3"), so both the start and the end of a path stay in
// view, and the tooltip holds the whole text. text() is always the whole text.
//
// GUI thread.
class ElidedLabel : public QLabel {
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget *parent = nullptr);

    // What is drawn at the current width.
    [[nodiscard]] QString shownText() const;
    [[nodiscard]] QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
};
