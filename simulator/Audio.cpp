#include "Audio.h"

Audio::Audio(BusService& soundManager, BusService& outputControl, BusService& inputControl)
{
    Keep(soundManager, "SetAmplifiersDefault", "amplifiers", QVariant::fromValue<uchar>(1));
    Tell(soundManager, "GetAmplifiersDefault", "amplifiers");
    state["playing"] = "";
    soundManager.Handle("PlayGsmVoice", [this](const QVariantList&) {
        state["playing"] = "gsmvoice";
        return Answer();
    });
    soundManager.Handle("StopPlay", [this](const QVariantList& arguments) {
        if (state["playing"] == arguments.at(0))
            state["playing"] = "";
        return Answer();
    });

    Keep(outputControl, "SetOutputType", "output-type", 1U);
    Tell(outputControl, "GetOutputType", "output-type");
    Keep(outputControl, "SetOutputMask", "output-mask", QVariant::fromValue<uchar>(1));
    Tell(outputControl, "GetOutputMask", "output-mask");
    Keep(outputControl, "SetInputOutputRouting", "routing", QVariant::fromValue<uchar>(0));
    Tell(outputControl, "GetInputOutputRouting", "routing");
    Keep(outputControl, "SetLineMute", "line-mute", false);
    Keep(outputControl, "SetPcmVolume", "pcm-volume", 50U);
    outputControl.Handle("ApplyOutputType", [](const QVariantList&) { return Answer(); });

    Keep(inputControl, "SetInputSource", "input-source", 1);
    Tell(inputControl, "GetInputSource", "input-source");
    Keep(inputControl, "SetMute", "input-mute", false);
    Tell(inputControl, "GetMute", "input-mute");
    Keep(inputControl, "SetVol", "input-volume", 0.5);
    Tell(inputControl, "GetVol", "input-volume");
    state["capture"] = false;
    Tell(inputControl, "GetCaptureEnabled", "capture");
    inputControl.Handle("CaptureStart", [this](const QVariantList&) {
        state["capture"] = true;
        return Answer();
    });
    inputControl.Handle("CaptureStop", [this](const QVariantList&) {
        state["capture"] = false;
        return Answer();
    });
}

void Audio::Keep(BusService& service, const QString& method, const QString& key, const QVariant& initial)
{
    state[key] = initial;
    service.Handle(method, [this, key](const QVariantList& arguments) {
        state[key] = arguments.at(0);
        return Answer();
    });
}

void Audio::Tell(BusService& service, const QString& method, const QString& key)
{
    service.Handle(method, [this, key](const QVariantList&) { return Answer{0, {state.value(key)}}; });
}
