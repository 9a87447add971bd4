// SPDX-License-Identifier: GPL-3.0-or-later
#include "kestrelctl/serve_radio.h"

#include <fmt/format.h>

#include <thread>

#include "kestrelctl/now_json.h"

namespace kestrelctl {
namespace {

using namespace std::chrono_literals;

constexpr auto look_interval = 500ms;
constexpr auto look_step = 100ms;      // between two looks at the stop signal
constexpr auto longest_silence = 10s;  // the page takes a longer one for a lost connection

template <class... Functions>
struct Overloaded : Functions... {
  using Functions::operator()...;
};
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

}  // namespace

std::string to_text(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Place::Place(std::atomic<unsigned>& taken, unsigned most) : taken_(taken) {
  if (++taken_ <= most) return;
  --taken_;
  throw Failure("Too many use the radio at once. Try again later.");
}

Json Shared_radio::look() {
  auto now = describe_as_json(radio_.look());
  publish(now);
  return now;
}

Json Shared_radio::status() {
  const Place place(asking_, most_asking);
  const std::scoped_lock lock(radio_mutex_);
  return look();
}

// The lists are the store's: they need not wait for the radio, which somebody may scan with.

Json Shared_radio::stations() {
  const Place place(asking_, most_asking);
  auto list = Json::array();
  for (const auto& station : store_.stations()) list.push_back(describe_as_json(station));
  return list;
}

Json Shared_radio::presets() {
  const Place place(asking_, most_asking);
  auto list = Json::array();
  for (const auto& [number, preset] : store_.settings().presets) {
    list.push_back({{"number", number}});
    list.back().update(describe_as_json(station_of(store_, preset)));
  }
  return list;
}

Station Shared_radio::find(const Station_reference& wanted) const {
  const auto stations = store_.stations();
  if (const auto* station = find_station(stations, wanted)) return *station;
  throw Failure("This station is not in the list any more.", exit_status::not_found);
}

Json Shared_radio::carry_out(const Wish& wish) {
  if (const auto* change = std::get_if<Preset_wish>(&wish)) {
    {
      const Place place(asking_, most_asking);
      std::optional<Station_reference> kept;
      if (change->station) kept = refer_to(find(*change->station));
      store_.update([&](Settings& settings) {
        settings.presets.erase(change->number);
        if (kept) settings.presets[change->number] = *kept;
      });
    }
    return presets();
  }
  const Place place(asking_, most_asking);
  const std::scoped_lock lock(radio_mutex_);
  const auto preset = [this](unsigned number) {
    const auto presets = store_.settings().presets;
    const auto found = presets.find(number);
    if (found == presets.end()) {
      throw Failure(fmt::format("There is no preset {}.", number), exit_status::not_found);
    }
    return station_of(store_, found->second);
  };
  std::visit(
      Overloaded{[&](const Play_wish& play) {
                   (void)radio_.play(std::visit(
                       Overloaded{preset, [this](const auto& wanted) { return find(wanted); }},
                       play.what));
                 },
                 [this](const Volume_wish& volume) { radio_.set_volume(volume.volume); },
                 [this](const Stop_wish&) { radio_.stop(); }, [](const Preset_wish&) {}},
      wish);
  return look();
}

void Shared_radio::watch(const std::stop_token& stop) {
  const auto is_over = [&stop] { return is_stopped() || stop.stop_requested(); };
  while (!is_over()) {
    if (listeners_ == 0) {
      {
        const std::scoped_lock lock(news_mutex_);
        version_ = 0;
      }
      std::this_thread::sleep_for(look_step);
      continue;
    }
    try {
      const std::scoped_lock lock(radio_mutex_);
      (void)look();
    } catch (const std::exception& trouble) {
      publish({{"error", trouble.what()}});
    }
    for (std::chrono::milliseconds waited{}; waited < look_interval && !is_over();
         waited += look_step) {
      std::this_thread::sleep_for(look_step);
    }
  }
}

void Shared_radio::publish(const Json& news) {
  const std::scoped_lock lock(news_mutex_);
  // That time passes is no news.
  if (news_.contains("time") && news.contains("time")) news_["time"] = news["time"];
  if (version_ != 0 && news == news_) return;
  news_ = news;
  ++version_;
  change_.notify_all();
}

std::string Shared_radio::Listener::next() {
  std::unique_lock lock(radio_.news_mutex_);
  const auto is_new = [this] { return radio_.version_ != 0 && radio_.version_ != version_; };
  const auto now = std::chrono::steady_clock::now();
  if (radio_.change_.wait_for(lock, look_step, is_new)) {
    version_ = radio_.version_;
    spoken_ = now;
    return "data: " + to_text(radio_.news_) + "\n\n";
  }
  if (now - spoken_ < longest_silence) return "";
  spoken_ = now;
  return ":\n\n";
}

}  // namespace kestrelctl
