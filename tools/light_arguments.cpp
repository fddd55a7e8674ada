// The declaration of the commands that measure light: `als`, `flicker` and `tunnel`.

#include "tools/arguments.h"

namespace spectralsensorctl {

namespace {

void add_repeating(CLI::App* command, int* count, bool* watch) {
  CLI::Option* number = command->add_option("--count", *count, "How many, 1 to 1000000.")
                            ->transform(whole_number(1, 1000000))
                            ->type_name("N")
                            ->capture_default_str();
  command->add_flag("--watch", *watch, "Go on until Ctrl-C.")->excludes(number);
}

void add_exposure_options(CLI::App* command, AlsOptions* options) {
  command->add_flag("--auto-exposure,!--no-auto-exposure", options->auto_exposure,
                    "Let each reading choose the exposure and the gains of the next one, which is "
                    "the default, or keep those given.");
  command
      ->add_option("--exposure-us", options->exposure_us,
                   "Exposure to begin with in microseconds, 1600 to 1636800; the chip takes the "
                   "nearest step of 1600.")
      ->transform(whole_number(1600, 1636800))
      ->type_name("US")
      ->capture_default_str();
  command
      ->add_option("--gain", options->gain,
                   "Gain to begin with, a factor of 0.71 to 66.67; the chip takes the nearest of "
                   "its fifteen.")
      ->check(number("0.71", "66.67"))
      ->type_name("FACTOR")
      ->capture_default_str();
  command
      ->add_option("--channels", options->channels,
                   "Mask of the channels to measure, 1 to 63: bit 0 is channel 0.")
      ->transform(whole_number(1, 63))
      ->type_name("MASK")
      ->capture_default_str();
}

void add_flicker_files(CLI::App* command, CLI::Option* detector, FlickerOptions* options) {
  command
      ->add_option("--save", options->wav_path,
                   "Keep the last measurement's samples as a WAV file, 2000 a second.")
      ->check([](const std::string&) -> std::string {
        return can_save_wav() ? "" : "this build has no libsndfile, which writes WAV files";
      })
      ->check(ends_in({".wav"}))
      ->type_name("FILE.wav")
      ->excludes(detector);
  command
      ->add_option("--plot", options->plot_path,
                   "Draw the last measurement: its waveform, and its spectrum with the reported "
                   "frequencies marked. A PNG picture by gnuplot, or for a name in .gp the "
                   "script that draws it.")
      ->check(ends_in({".png", ".gp"}))
      ->type_name("FILE.png")
      ->excludes(detector);
}

}  // namespace

void add_als(CLI::App* to, Arguments* arguments) {
  CLI::App* command = add_command(
      to, "als",
      "read the ambient light\n"
      "Takes readings of the light on each channel, in counts at the smallest gain in use. For a "
      "single reading it takes captures until the auto-exposure keeps its setting, at most ten, "
      "and shows the last. A watch on a terminal shows each channel with a bar, from 1 to 65535 "
      "counts by the logarithm, and draws it again in place; elsewhere it prints a line a "
      "reading.",
      " spectralsensorctl als\n"
      " spectralsensorctl als --watch\n"
      " spectralsensorctl als --count 100 --csv >light.csv\n"
      " spectralsensorctl als --no-auto-exposure --exposure-us 100800 --gain 2.5");
  add_repeating(command, &arguments->als.count, &arguments->als.watch);
  add_exposure_options(command, &arguments->als);
  add_formats(command, arguments);
  do_with_service(command, arguments, [arguments](auto* service) {
    read_als<ServiceOf<decltype(service)>>(arguments->als, arguments->format());
  });
}

void add_flicker(CLI::App* to, Arguments* arguments) {
  CLI::App* command = add_command(
      to, "flicker",
      "find the flicker frequencies of the light\n"
      "Samples the light for a second, 2000 times, and reports the strength of the mains' "
      "flicker at 100 and 120 Hz and the strongest other frequencies; a verdict is confirmed by "
      "a second measurement. What it does goes to stderr meanwhile.",
      " spectralsensorctl flicker\n"
      " spectralsensorctl flicker --plot lamp.png --save lamp.wav\n"
      " spectralsensorctl flicker --watch --json\n"
      " spectralsensorctl flicker --detector");
  FlickerOptions* options = &arguments->flicker;
  add_repeating(command, &options->count, &options->watch);
  CLI::Option* detector =
      command->add_flag("--detector", options->detector,
                        "Ask the chip's own detector instead: it counts the light's periods.");
  add_flicker_files(command, detector, options);
  add_formats(command, arguments);
  do_with_service(command, arguments, [arguments](auto* service) {
    find_flicker<ServiceOf<decltype(service)>>(arguments->flicker, arguments->format());
  });
}

void add_tunnel(CLI::App* to, Arguments* arguments) {
  CLI::App* command = add_command(to, "tunnel", "look into the sensor hub's tunnel",
                                  " spectralsensorctl tunnel dump --length-ms 100");
  command->require_subcommand(1);
  CLI::App* dump = add_command(
      command, "dump",
      "show the packets of the tunnel\n"
      "Starts a flicker measurement, reads the stream of /dev/sensor_tunnel until there are "
      "the packets of that many milliseconds, and shows a line a packet: time of the dump, stream "
      "id (0 flicker, 15 VSYNC), auxiliary word, time stamp, sequence number, length, and the "
      "samples of flicker packets. The driver dumps by way of /data/unparsed_flicker_data.",
      " spectralsensorctl tunnel dump\n"
      " spectralsensorctl tunnel dump --length-ms 1000 --raw stream.bin --csv");
  dump->add_option("--length-ms", arguments->dump.length_ms, "How long to read, 10 to 1000.")
      ->transform(whole_number(10, 1000))
      ->type_name("MS")
      ->capture_default_str();
  dump->add_option("--raw", arguments->dump.raw_path,
                   "Keep the stream's bytes, as they came. For - they go to the output instead of "
                   "the packets.")
      ->type_name("FILE");
  add_formats(dump, arguments);
  do_with_service(dump, arguments, [arguments](auto* service) {
    dump_tunnel<ServiceOf<decltype(service)>>(arguments->dump, arguments->format());
  });
}

}  // namespace spectralsensorctl
