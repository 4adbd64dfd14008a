// Type declarations of the promise client: require('keyloom/promises'). Its
// commands are the synchronous client's (js/client/index.d.ts), each answering
// with a Promise.
/// <reference types="node" />
import type { KlClient } from '../exact/index';
import type { ClientOptions, Commands, Server } from './index';

export type {
  Text, Server, Entries, HashName, DistributionName, DirtyWrite, ClientOptions, TtlOption, RouteOption,
  BufferOption, GroupOption, MultiOptions, SetOptions, RangeOptions, ScoredMember, ZEntry, WordEntry,
  SortOptions, CallOptions, Reply, CommandArgument, AnyCommandOptions, ScriptOptions, ScanOptions, TlsOptions,
} from './index';
export { KeyloomError, codes, version } from './index';

export interface PromiseClientOptions extends ClientOptions {
  /** The most commands in flight at once (default 100000): one more rejects at once with KL_MEMORY_FAILURE. */
  maxQueued?: number;
}

export interface KeyloomClient extends Commands<'promise'> {}
export declare class KeyloomClient {
  private constructor();
  /**
   * The exact layer's kl_client proxy, for calls this client does not wrap. The client is made
   * with KL_FLAG_SHARED, so such calls wait for the pipeline's round in progress.
   */
  readonly handle: KlClient;
  readonly closed: boolean;
  /** Settles once the password and db given to createClient are in place (rejects when refused). */
  readonly ready: Promise<void>;
  /**
   * Ends the client for good once the commands in flight have settled: closes its connections,
   * stops its I/O thread and frees it. Commands made after close() reject with KL_INVALID_CLIENT.
   */
  close(): Promise<void>;
  /** A new promise client made from the options given to createClient. */
  duplicate(): KeyloomClient;
  [Symbol.asyncDispose](): Promise<void>;
}

/** Makes a promise client (a string or an array is taken as the servers); it returns at once. */
export declare function createClient(options?: PromiseClientOptions | string | Server[]): KeyloomClient;
