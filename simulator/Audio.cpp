#include "Audio.h"

#include "PeerCodes.h"

Audio::Audio(BusService& soundManager, BusService& outputControl, BusService& inputControl)
{
    AddSetter(soundManager, "SetAmplifiersDefault", "amplifiers", QVariant::fromValue<uchar>(1));
    AddGetter(soundManager, "GetAmplifiersDefault", "amplifiers");
    state["playing"] = "";
    soundManager.Handle("PlayGsmVoice", [this](const QVariantList&) {
        state["playing"] = GsmVoiceStream;
        return Answer();
    });
    soundManager.Handle("StopPlay", [this](const QVariantList& arguments) {
        if (state["playing"] == arguments.at(0))
            state["playing"] = "";
        return Answer();
    });

    AddSetter(outputControl, "SetOutputType", "output-type", 1U);
    AddGetter(outputControl, "GetOutputType", "output-type");
    AddSetter(outputControl, "SetOutputMask", "output-mask", QVariant::fromValue<uchar>(1));
    AddGetter(outputControl, "GetOutputMask", "output-mask");
    AddSetter(outputControl, "SetInputOutputRouting", "routing", QVariant::fromValue<uchar>(0));
    AddGetter(outputControl, "GetInputOutputRouting", "routing");
    AddSetter(outputControl, "SetLineMute", "line-mute", false);
    AddSetter(outputControl, "SetPcmVolume", "pcm-volume", 50U);
    outputControl.Handle("ApplyOutputType", [](const QVariantList&) { return Answer(); });

    AddSetter(inputControl, "SetInputSource", "input-source", 1);
    AddGetter(inputControl, "GetInputSource", "input-source");
    AddSetter(inputControl, "SetMute", "input-mute", false);
    AddGetter(inputControl, "GetMute", "input-mute");
    AddSetter(inputControl, "SetVol", "input-volume", 0.5);
    AddGetter(inputControl, "GetVol", "input-volume");
    state["capture"] = false;
    AddGetter(inputControl, "GetCaptureEnabled", "capture");
    inputControl.Handle("CaptureStart", [this](const QVariantList&) {
        state["capture"] = true;
        return Answer();
    });
    inputControl.Handle("CaptureStop", [this](const QVariantList&) {
        state["capture"] = false;
        return Answer();
    });
}

void Audio::AddSetter(BusService& service, const QString& method, const QString& key, const QVariant& initial)
{
    state[key] = initial;
    service.Handle(method, [this, key](const QVariantList& arguments) {
        state[key] = arguments.at(0);
        return Answer();
    });
}

void Audio::AddGetter(BusService& service, const QString& method, const QString& key)
{
    service.Handle(method, [this, key](const QVariantList&) { return Answer{0, {state.value(key)}}; });
}
