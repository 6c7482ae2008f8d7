#pragma once
// GrayChartPlot: a small plot of one metric over the six gray patches of the
// chart (x = patch number 19..24). Four curves in this order: "Gray Patch"
// (black), "Gray Patch R", "Gray Patch G", "Gray Patch B" (red, green, blue),
// all lines with a 10 x 10 ellipse symbol on the left axis.

#include <qwt_plot.h>
#include <qwt_plot_curve.h>

class QPrinter;

class GrayChartPlot : public QwtPlot
{
    Q_OBJECT
public:
    enum CurveIndex { GrayCurve = 0, RedCurve = 1, GreenCurve = 2, BlueCurve = 3, CurveCount = 4 };

    explicit GrayChartPlot(QWidget *parent = nullptr);
    ~GrayChartPlot() override;

    // Sets the samples of every curve whose array is given; a null array
    // leaves that curve as it is.
    void setSamples(const double *x, const double *gray, const double *red, const double *green,
                    const double *blue, int count);
    // Sets the samples of the "Gray Patch" curve only.
    void setGraySamples(const double *x, const double *values, int count);
    // Sets the style of all four curves.
    void setCurveStyle(QwtPlotCurve::CurveStyle style);

    QwtPlotCurve *curve(int index) const;

public slots:
    // Print dialog for a landscape printer; renders the plot on acceptance.
    void print();
    // Renders the plot onto an already configured printer.
    void renderTo(QPrinter &printer);

private:
    QwtPlotCurve *m_curves[CurveCount] = {};
};
