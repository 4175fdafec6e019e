// The Swift half of the on-device model bridge: FoundationModels behind plain C symbols, so the
// C++ side of the kit needs no Swift. Built on every Apple system; the framework calls compile
// only where the SDK has FoundationModels and run only on macOS 26 and later.
import Foundation

#if canImport(FoundationModels)
import FoundationModels
#endif

/// Keeps a Swift value alive behind an opaque pointer owned by C++.
private final class Box {
    let value: Any
    init(_ value: Any) { self.value = value }
}

private func retained(_ value: Any) -> UnsafeMutableRawPointer {
    Unmanaged.passRetained(Box(value)).toOpaque()
}

private func unboxed(_ handle: UnsafeMutableRawPointer) -> Any {
    Unmanaged<Box>.fromOpaque(handle).takeUnretainedValue().value
}

public typealias SagelyCompletion =
    @convention(c) (UnsafeMutableRawPointer?, Int32, UnsafePointer<CChar>?) -> Void
public typealias SagelySnapshot =
    @convention(c) (UnsafeMutableRawPointer?, UnsafePointer<CChar>?) -> Void

@_cdecl("sagely_fm_release")
public func sagelyFMRelease(_ handle: UnsafeMutableRawPointer?) {
    guard let handle else { return }
    Unmanaged<Box>.fromOpaque(handle).release()
}

@_cdecl("sagely_fm_default_model")
public func sagelyFMDefaultModel() -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *) {
        return retained(SystemLanguageModel.default)
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_content_tagging_model")
public func sagelyFMContentTaggingModel() -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *) {
        return retained(SystemLanguageModel(useCase: .contentTagging, guardrails: .default))
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_adapter_model")
public func sagelyFMAdapterModel(_ name: UnsafePointer<CChar>) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *) {
        guard let adapter = try? SystemLanguageModel.Adapter(name: String(cString: name)) else {
            return nil
        }
        return retained(SystemLanguageModel(adapter: adapter, guardrails: .default))
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_adapter_file_model")
public func sagelyFMAdapterFileModel(_ path: UnsafePointer<CChar>) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *) {
        let url = URL(fileURLWithPath: String(cString: path))
        guard let adapter = try? SystemLanguageModel.Adapter(fileURL: url) else { return nil }
        return retained(SystemLanguageModel(adapter: adapter, guardrails: .default))
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_model_availability")
public func sagelyFMModelAvailability(_ model: UnsafeMutableRawPointer) -> Int32 {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *), let model = unboxed(model) as? SystemLanguageModel {
        switch model.availability {
        case .available:
            return 0
        case .unavailable(.deviceNotEligible):
            return 1
        case .unavailable(.appleIntelligenceNotEnabled):
            return 2
        case .unavailable(.modelNotReady):
            return 3
        default:
            return 4
        }
    }
    #endif
    return 1
}

@_cdecl("sagely_fm_session_create")
public func sagelyFMSessionCreate(_ model: UnsafeMutableRawPointer) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *), let model = unboxed(model) as? SystemLanguageModel {
        // The system text travels inside the prompt, so the session has no instructions.
        return retained(LanguageModelSession(model: model, tools: []))
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_session_respond")
public func sagelyFMSessionRespond(
    _ session: UnsafeMutableRawPointer, _ prompt: UnsafePointer<CChar>, _ temperature: Double,
    _ maximumResponseTokens: Int64, _ context: UnsafeMutableRawPointer?,
    _ completion: SagelyCompletion
) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *), let session = unboxed(session) as? LanguageModelSession {
        let text = String(cString: prompt)
        let options = sagelyOptions(temperature, maximumResponseTokens)
        return sagelyRun(context, completion) {
            try await session.respond(to: text, options: options).content
        }
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_session_stream")
public func sagelyFMSessionStream(
    _ session: UnsafeMutableRawPointer, _ prompt: UnsafePointer<CChar>, _ temperature: Double,
    _ maximumResponseTokens: Int64, _ context: UnsafeMutableRawPointer?,
    _ snapshot: SagelySnapshot, _ completion: SagelyCompletion
) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *), let session = unboxed(session) as? LanguageModelSession {
        let text = String(cString: prompt)
        let options = sagelyOptions(temperature, maximumResponseTokens)
        return sagelyRun(context, completion) {
            // Each snapshot holds the whole response so far, not a delta; the C++ side turns
            // them into pieces.
            var latest = ""
            for try await partial in session.streamResponse(to: text, options: options) {
                latest = partial.content
                latest.withCString { snapshot(context, $0) }
            }
            return latest
        }
    }
    #endif
    return nil
}

#if canImport(FoundationModels)
@available(macOS 26.0, *)
private func sagelyOptions(_ temperature: Double, _ maximumResponseTokens: Int64)
    -> GenerationOptions
{
    GenerationOptions(
        sampling: nil, temperature: temperature,
        maximumResponseTokens: Int(maximumResponseTokens))
}

/// Runs a response on a task, which it returns: the reply's text, or the failure, goes to
/// `completion`.
@available(macOS 26.0, *)
private func sagelyRun(
    _ context: UnsafeMutableRawPointer?, _ completion: SagelyCompletion,
    _ respond: @escaping () async throws -> String
) -> UnsafeMutableRawPointer {
    let task = Task {
        do {
            let reply = try await respond()
            reply.withCString { completion(context, 0, $0) }
        } catch {
            sagelyReportFailure(error, context, completion)
        }
    }
    return retained(task)
}

/// Ends a response that failed: its outcome code and description go to `completion`.
@available(macOS 26.0, *)
private func sagelyReportFailure(
    _ error: any Error, _ context: UnsafeMutableRawPointer?, _ completion: SagelyCompletion
) {
    if let error = error as? LanguageModelSession.GenerationError {
        // What macOS 26 throws, and macOS 27 to apps built with the macOS 26 SDK.
        let outcome: Int32
        if case .exceededContextWindowSize = error { outcome = 1 } else { outcome = 2 }
        error.localizedDescription.withCString { completion(context, outcome, $0) }
    } else if error is CancellationError {
        completion(context, 3, nil)
    } else {
        let outcome: Int32 = sagelyIsContextSizeExceeded(error) ? 1 : 4
        error.localizedDescription.withCString { completion(context, outcome, $0) }
    }
}
#endif

/// Whether the error is macOS 27's context-window overflow, which apps built with the macOS 27
/// SDK receive as `LanguageModelError.contextSizeExceeded(_:)` in place of
/// `GenerationError.exceededContextWindowSize(_:)`. The type exists only in that SDK, whose
/// Swift compiler is 6.4 or later (the macOS 26 SDKs come with Swift 6.2 and 6.3).
private func sagelyIsContextSizeExceeded(_ error: any Error) -> Bool {
    #if canImport(FoundationModels) && compiler(>=6.4)
    if #available(macOS 27.0, *), let error = error as? LanguageModelError,
        case .contextSizeExceeded = error
    {
        return true
    }
    #endif
    return false
}

@_cdecl("sagely_fm_task_cancel")
public func sagelyFMTaskCancel(_ task: UnsafeMutableRawPointer) {
    (unboxed(task) as? Task<Void, Never>)?.cancel()
}
