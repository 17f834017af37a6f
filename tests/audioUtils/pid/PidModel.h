#pragma once

// The arithmetic of drift control written out in the plainest way, to compare with bit by bit.

#include <cstdint>
#include <functional>
#include <utility>

namespace pidModel {

struct Pid
{
    double kp = 0, ki = 0, kd = 0;
    int direction = 0;
    double output = 0.0, setPoint = 0.0;
    std::uint64_t lastTime = 0;
    double integral = 0.0, lastError = 0.0;
    std::uint64_t sampleTime = 50;
    double outMin = 0.0, outMax = 255.0;
    bool automatic = false, first = true;

    Pid(double p, double i, double d, int dir) : direction(dir) { setTunings(p, i, d); }

    void setTunings(double p, double i, double d)
    {
        const double s = static_cast<double>(sampleTime) / 1000.0;
        kp = p;
        ki = i * s;
        kd = d / s;
        if (direction == 1) {
            negate();
        }
    }
    void negate()
    {
        kp = 0.0 - kp;
        ki = 0.0 - ki;
        kd = 0.0 - kd;
    }
    void setSampleTime(int time)
    {
        if (time < 1) {
            return;
        }
        const double ratio = static_cast<double>(time) / static_cast<double>(sampleTime);
        ki = ki * ratio;
        kd = kd / ratio;
        sampleTime = static_cast<std::uint64_t>(time);
    }
    void clamp(double& value) const
    {
        if (value > outMax) {
            value = outMax;
        } else if (value < outMin) {
            value = outMin;
        }
    }
    void setOutputLimits(double min, double max)
    {
        if (min >= max) {
            return;
        }
        outMin = min;
        outMax = max;
        if (automatic) {
            clamp(output);
            clamp(integral);
        }
    }
    void setMode(int mode)
    {
        if ((mode == 1) != automatic) {
            initialize();
        }
        automatic = mode == 1;
    }
    void setControllerDirection(int dir)
    {
        if (automatic && dir != direction) {
            negate();
        }
        direction = dir;
    }
    void initialize()
    {
        first = true;
        integral = output;
        clamp(integral);
    }
    void reset()
    {
        output = setPoint;
        initialize();
    }
    double compute(double input, std::uint64_t now)
    {
        if (!automatic || now - lastTime < sampleTime) {
            return output;
        }
        const std::uint64_t elapsed = now - lastTime;
        const double error = setPoint - input;
        const double previous = first ? error : lastError;
        first = false;
        integral = integral + ki * error;
        clamp(integral);
        const double derivative = (error - previous) * 1000.0 / static_cast<double>(elapsed);
        output = kp * error + integral - kd * derivative;
        clamp(output);
        lastTime = now;
        lastError = error;
        return output;
    }
};

struct LowPass
{
    double b0 = 1.0, b1 = 0.0, a1 = 0.0, x1 = 0.0, y1 = 0.0, alpha = 1.0;
    bool first = true;

    void setAlpha(double value)
    {
        if (value == alpha) {
            return;
        }
        alpha = value;
        if (alpha == 1.0) {
            b0 = 1.0;
            b1 = 0.0;
            a1 = 0.0;
        } else {
            const double w = (alpha / 15.0) * 6.283185307179586;
            const double r = 1.0 / (w + 2.0);
            b0 = w * r;
            b1 = w * r;
            a1 = (2.0 - w) * r;
        }
    }
    double filter(double x)
    {
        if (first) {
            x1 = x;
            y1 = x;
            first = false;
        }
        const double y = (b1 * x1 + b0 * x) + a1 * y1;
        x1 = x;
        y1 = y;
        return y;
    }
};

struct Compensator
{
    int min, max, sampleTime;
    double alpha;
    std::function<void(int)> report;
    Pid pid;
    LowPass filter;
    bool pending = true;
    double last = 0;

    Compensator(int minAdjust, int maxAdjust, double p, double i, double d,
                std::function<void(int)> callback, int time, double filterAlpha)
        : min(minAdjust),
          max(maxAdjust),
          sampleTime(time),
          alpha(filterAlpha),
          report(std::move(callback)),
          pid(p, i, d, 1)
    {
    }

    void resetPid()
    {
        filter.setAlpha(alpha);
        filter.first = true;
        pid.setOutputLimits(min, max);
        pid.setPoint = 0.0;
        pid.setMode(1);
        pid.setSampleTime(sampleTime);
        pid.reset();
        report(0);
    }
    void update(long drift, unsigned long now)
    {
        if (pending) {
            pending = false;
            last = max + 1;
            resetPid();
            return;
        }
        const double y = filter.filter(static_cast<double>(drift));
        const double output = pid.compute(y / 1000.0, now / 1000000);
        if (static_cast<int>(last - output) != 0) {
            last = output;
            report(static_cast<int>(output));
        }
    }
};

} // namespace pidModel
