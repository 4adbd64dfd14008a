#include "loop_pipeline.h"

#include <node.h>

#include <unordered_map>

namespace keyloom {

namespace {

// This thread's pipelines, by client.
thread_local std::unordered_map<kl_client*, LoopPipeline*>* pipelines = nullptr;

}  // namespace

v8::Local<v8::String> TextOf(v8::Isolate* isolate, const std::string& s) {
  return v8::String::NewFromUtf8(isolate, s.data(), v8::NewStringType::kNormal, static_cast<int>(s.size()))
      .ToLocalChecked();
}

v8::Local<v8::Value> PipelinedCall::Result(v8::Isolate* isolate) {
  v8::Local<v8::Integer> result = v8::Integer::New(isolate, static_cast<int>(code));
  if (failure.kind == KL_FAILURE_NONE) return result;
  v8::Local<v8::Value> parts[] = {result, v8::Integer::New(isolate, failure.kind), TextOf(isolate, failure.server),
                                  TextOf(isolate, failure.text)};
  return v8::Array::New(isolate, parts, 4);
}

LoopPipeline::LoopPipeline(v8::Isolate* isolate, kl_client* client, kl_pipeline* pipeline,
                           v8::Local<v8::Function> on_settled)
    : isolate_(isolate), client_(client), pipeline_(pipeline), wakeup_(new uv_async_t()) {
  on_settled_.Reset(isolate, on_settled);
  uv_async_init(node::GetCurrentEventLoop(isolate), wakeup_, &LoopPipeline::OnDone);
  wakeup_->data = this;
  uv_unref(reinterpret_cast<uv_handle_t*>(wakeup_));
  context_.Reset(isolate, isolate->GetCurrentContext());
  resource_.Reset(isolate, v8::Object::New(isolate));
}

LoopPipeline::~LoopPipeline() {
  wakeup_->data = nullptr;
  uv_close(reinterpret_cast<uv_handle_t*>(wakeup_),
           [](uv_handle_t* handle) { delete reinterpret_cast<uv_async_t*>(handle); });
}

bool LoopPipeline::Start(v8::Isolate* isolate, kl_client* client, v8::Local<v8::Function> on_settled) {
  if (!client || Of(client)) return false;
  kl_pipeline* pipeline = kl_pipeline_start(client);
  if (!pipeline) return false;
  if (!pipelines) pipelines = new std::unordered_map<kl_client*, LoopPipeline*>();
  (*pipelines)[client] = new LoopPipeline(isolate, client, pipeline, on_settled);
  return true;
}

LoopPipeline* LoopPipeline::Of(kl_client* client) {
  if (!pipelines) return nullptr;
  auto it = pipelines->find(client);
  return it == pipelines->end() ? nullptr : it->second;
}

void LoopPipeline::Stop(kl_client* client) {
  LoopPipeline* self = Of(client);
  if (!self) return;
  pipelines->erase(client);
  kl_pipeline_stop(self->pipeline_);
  for (const kl_job& job : self->pending_) {
    auto* call = static_cast<PipelinedCall*>(job.data);
    call->ReleaseArguments();
    delete call;
  }
  for (PipelinedCall* call : self->done_) {
    call->ReleaseArguments();
    delete call;
  }
  if (self->in_flight_) uv_unref(reinterpret_cast<uv_handle_t*>(self->wakeup_));
  delete self;
}

void LoopPipeline::Track(int delta) {
  const bool was_idle = in_flight_ == 0;
  in_flight_ += delta;
  if (was_idle && in_flight_) uv_ref(reinterpret_cast<uv_handle_t*>(wakeup_));
  if (!was_idle && !in_flight_) uv_unref(reinterpret_cast<uv_handle_t*>(wakeup_));
}

void LoopPipeline::Add(PipelinedCall* call) {
  pending_.push_back(kl_job{&LoopPipeline::RunCall, call, timeout_ms_});
  Track(+1);
}

void LoopPipeline::Flush() {
  if (pending_.empty()) return;
  if (kl_pipeline_submit(pipeline_, pending_.data(), pending_.size()) != KL_SUCCESS) {
    // Out of memory: each call fails as the library would have failed it.
    std::lock_guard<std::mutex> lock(done_mutex_);
    for (const kl_job& job : pending_) {
      auto* call = static_cast<PipelinedCall*>(job.data);
      call->code = KL_MEMORY_FAILURE;
      done_.push_back(call);
    }
    uv_async_send(wakeup_);
  }
  pending_.clear();
}

void LoopPipeline::RunCall(void* data) {
  auto* call = static_cast<PipelinedCall*>(data);
  call->Run();
  // The owner outlives every call its pipeline runs: Stop joins the
  // pipeline's thread before it goes.
  LoopPipeline* self = call->owner;
  {
    std::lock_guard<std::mutex> lock(self->done_mutex_);
    self->done_.push_back(call);
  }
  uv_async_send(self->wakeup_);
}

void LoopPipeline::OnDone(uv_async_t* handle) {
  if (auto* self = static_cast<LoopPipeline*>(handle->data)) self->SettleDone();
}

void LoopPipeline::SettleDone() {
  std::vector<PipelinedCall*> settled;
  {
    std::lock_guard<std::mutex> lock(done_mutex_);
    settled.swap(done_);
  }
  if (settled.empty()) return;
  v8::HandleScope handles(isolate_);
  v8::Local<v8::Context> context = context_.Get(isolate_);
  v8::Context::Scope context_scope(context);
  // Settles under a callback scope, so that the continuations (and
  // process.nextTick callbacks) run before the loop goes on.
  node::CallbackScope callback_scope(isolate_, resource_.Get(isolate_), node::async_context{0, 0});
  // [ticket, result, ...]: every finished call, in one call into JavaScript.
  std::vector<v8::Local<v8::Value>> parts;
  parts.reserve(2 * settled.size());
  for (PipelinedCall* call : settled) {
    call->ReleaseArguments();
    parts.push_back(v8::Integer::NewFromUnsigned(isolate_, call->ticket));
    parts.push_back(call->Result(isolate_));
    delete call;
  }
  Track(-static_cast<int>(settled.size()));
  v8::Local<v8::Value> argv[] = {v8::Array::New(isolate_, parts.data(), parts.size())};
  // The callback catches what its continuations throw; an exception that
  // still escapes is the process's, as for any callback.
  if (on_settled_.Get(isolate_)->Call(context, v8::Undefined(isolate_), 1, argv).IsEmpty()) return;
}

void StartPipelinedCall(const v8::FunctionCallbackInfo<v8::Value>& info, int ticket_at, PipelinedCall* call) {
  v8::Isolate* isolate = info.GetIsolate();
  const char* refused = nullptr;
  LoopPipeline* pipeline = LoopPipeline::Of(call->client);
  if (!info[ticket_at]->IsUint32()) {
    refused = "keyloom: a pipelined call's last argument is its ticket, a uint32";
  } else if (!pipeline) {
    refused = "keyloom: this client has no pipeline on this thread";
  }
  if (refused) {
    call->ReleaseArguments();
    delete call;
    isolate->ThrowException(v8::Exception::Error(TextOf(isolate, refused)));
    return;
  }
  call->ticket = info[ticket_at].As<v8::Uint32>()->Value();
  call->owner = pipeline;
  pipeline->Add(call);
}

}  // namespace keyloom
